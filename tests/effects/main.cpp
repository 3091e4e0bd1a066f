// Text inputs need fonts, and fonts need a GUI application (offscreen platform).
#include <gtest/gtest.h>

#include <QGuiApplication>

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
