// Runs the tests on a private session bus of their own (never the user's), with fonts.
#include <gtest/gtest.h>

#include <QGuiApplication>

#include <cstdio>
#include <cstdlib>
#include <unistd.h>
#include <vector>

int main(int argc, char** argv)
{
    if (!std::getenv("LUMAVEIL_TEST_PRIVATE_BUS")) {
        setenv("LUMAVEIL_TEST_PRIVATE_BUS", "1", 1);
        std::vector<char*> arguments{const_cast<char*>("dbus-run-session"), const_cast<char*>("--")};
        arguments.insert(arguments.end(), argv, argv + argc);
        arguments.push_back(nullptr);
        execvp("dbus-run-session", arguments.data());
        perror("execvp(dbus-run-session)");
        return 1;
    }
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
