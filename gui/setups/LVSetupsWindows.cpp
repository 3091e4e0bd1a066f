#include "gui/setups/LVSetupsWindows.h"

#include "gui/setups/LVSaveSetupDialog.h"
#include "gui/setups/LVSavedSetupsWindow.h"
#include "gui/setups/LVSetupManagerController.h"
#include "setups/model/LVSetupManager.h"

#include <QPointer>

namespace {

// One window of each kind; closing hides it, so it comes back as it was.
template <class Window>
Window* raise(QPointer<Window>& window)
{
    window->show();
    window->raise();
    window->activateWindow();
    return window;
}

} // namespace

void LVSetupsHost::loadSetup(const LVSavedSetup& setup, bool merge) const
{
    if (addEffectsFrom) addEffectsFrom(setup.instantiateWithContext(context), merge);
}

LVSavedSetupsWindow* LVShowSavedSetupsWindow(LVSetupManager& manager, const LVSetupsHost& host, QWidget* parent)
{
    static QPointer<LVSavedSetupsWindow> window;
    if (!window) {
        window = new LVSavedSetupsWindow(manager, host, parent);
        window->setAttribute(Qt::WA_DeleteOnClose, false);
    }
    return raise(window);
}

void LVShowSaveSetupDialog(LVSetupManager& manager, const LVSetupsHost& host, QWidget* parent,
                           const QString& prefillName)
{
    auto* dialog = new LVSaveSetupDialog(manager, host, prefillName, parent);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setObjectName(QStringLiteral("saveSetup"));
    dialog->open();
}

LVSetupManagerController* LVShowSetupSetsEditor(LVSetupManager& manager, QWidget* parent)
{
    static QPointer<LVSetupManagerController> editor;
    if (!editor) editor = new LVSetupManagerController(manager, parent);
    return raise(editor);
}
