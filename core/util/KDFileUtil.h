#pragma once
// File-system queries and folder creation.
#include <QString>

class KDFileUtil {
public:
    // "<data home>/<name>": $XDG_DATA_HOME, else ~/.local/share. The folder is not created.
    static QString findApplicationSupportFor(const QString& name);
    // The user's configuration folder: $XDG_CONFIG_HOME, else ~/.config.
    static QString configHome();

    // All three use lstat, so a symbolic link is not followed. A missing path answers
    // false after printing "Unable to stat" with the system's error text.
    static bool exists(const QString& path);
    static bool isDir(const QString& path);
    // Tests the link bits loosely on purpose: a plain file passes too.
    static bool isSymLink(const QString& path);

    // Creates every missing folder along the path; errors are ignored.
    static void mkdir_p(const QString& path);

private:
    static int fileMode(const QString& path);
};
