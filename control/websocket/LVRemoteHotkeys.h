#pragma once
// What the remote control offers as hotkeys: a list of names and a trigger by name. The
// composition root plugs in the user menu's entries; until then there are none.
#include <QString>
#include <QStringList>

class LVRemoteHotkeys {
public:
    virtual ~LVRemoteHotkeys() = default;
    virtual QStringList hotkeyNames() const = 0;
    // False when no entry has that name.
    virtual bool triggerHotkey(const QString& name) = 0;
};
