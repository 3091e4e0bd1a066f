// Lumaveil's composition root: builds every object, wires the interfaces, runs.
#include "app/LVKindRegistration.h"
#include "core/LVEffectRegistry.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStringList>

#include <cstdio>

namespace {

LVEffectFolders effectFolders()
{
    LVEffectFolders folders = LVEffectFolders::standard();
    // Run from the build tree: use the source tree's bundled Effects folder.
    if (qEnvironmentVariableIsEmpty("LUMAVEIL_EFFECTS_DIR") && !QFileInfo::exists(folders.bundled)) {
        folders.bundled = QStringLiteral(LV_BUILD_EFFECTS_DIR);
    }
    return folders;
}

void printCatalogue(const char* title, const LVEffectRegistry::FactoryList& list)
{
    std::printf("%s (%zu)\n", title, list.size());
    for (const auto& factory : list) {
        const QString origin = LVEffectOriginName(factory->origin());
        if (factory->path().isEmpty()) {
            std::printf("  %-28s %s\n", qPrintable(factory->name()), qPrintable(origin));
        } else {
            std::printf("  %-28s %s: %s\n", qPrintable(factory->name()), qPrintable(origin),
                        qPrintable(factory->path()));
        }
    }
}

int listEffects()
{
    LVRegisterAllKinds();
    LVEffectRegistry registry(effectFolders());
    registry.findEffects();
    printCatalogue("Sources", registry.allSources());
    printCatalogue("Effects", registry.allEffects());
    printCatalogue("Transitions", registry.transitions());
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Lumaveil"));
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.contains(QStringLiteral("--list-effects"))) return listEffects();
    std::fprintf(stderr, "usage: lumaveil --list-effects\n");
    return 2;
}
