#pragma once
// The main window: the live preview, the source chooser, the effect chain with its
// settings, the video size and frame rate menus and a frames-per-second readout.
#include "core/LVProxy.h"

#include <QMainWindow>

#include <functional>
#include <vector>

class LVChainModel;
class LVPreviewWidget;
class LVRemoteControlWindow;
class LVSettingsPanel;
class LVSetupManager;
class Lumaveil;
class QActionGroup;
class QComboBox;
class QLabel;
class QListView;
class QMenu;

class LVMainWindow : public QMainWindow {
    Q_OBJECT
public:
    // Builds the catalogues (the interface set-up step) and plugs the preview in.
    explicit LVMainWindow(Lumaveil& lumaveil, QWidget* parent = nullptr);
    ~LVMainWindow() override;

    // The one-time pre-release notice, shown without blocking.
    void showBetaNagIfNeeded();
    // Enables the Setups menu (saved-setups list, save dialog, sets editor) and lets saved
    // setups take their icon from the preview.
    void setSetupManager(LVSetupManager* manager);

    LVPreviewWidget* preview() const { return preview_; }
    QListView* chainView() const { return chainView_; }
    LVChainModel* chainModel() const { return chainModel_; }
    LVSettingsPanel* settingsPanel() const { return settings_; }
    QComboBox* sourceChooser() const { return sourceChooser_; }
    QComboBox* effectChooser() const { return effectChooser_; }
    QLabel* fpsLabel() const { return fpsLabel_; }
    QMenu* videoSizeMenu() const { return videoSizeMenu_; }
    QMenu* frameRateMenu() const { return frameRateMenu_; }
    QMenu* setupsMenu() const { return setupsMenu_; }
    // "None", then one entry per screen with its name; filled each time it opens.
    QMenu* screenMenu() const { return screenMenu_; }
    // The screen menu's action: the current full-screen output goes first; a screen index
    // (not a negative one, which is "None") makes a new one there, the same screen again too.
    void doSelectScreen(int index);

    // Restarts the application keeping the chain; with one, a new video size offers to
    // restart now instead of waiting for the next start.
    void setRestartHandler(std::function<void()> restart) { restart_ = std::move(restart); }
    // The remote control's one-line state, shown in its window (File > Remote Control...).
    void setRemoteControlStatus(std::function<QString()> status) { remoteControlStatus_ = std::move(status); }
    void setRemoteControlLink(std::function<QString()> link) { remoteControlLink_ = std::move(link); }
    void showRemoteControlWindow();

    // The close button of a chain row: removes that row.
    void doRemove(int row);

    // Saved settings that were refused at start and replaced, one sentence each; shown in
    // the status bar.
    QStringList refusedSettings() const;

    // Frame rates offered in the menu.
    static const QList<int>& frameRates();
    // What Help > About Lumaveil says.
    static QString aboutText();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    // The first show puts the preview back at its saved origin.
    void showEvent(QShowEvent* event) override;

private:
    // Offers, without stopping anything, to disable an effect that holds every frame up.
    void offerToDisableSlowEffect(const LVEffectRef& effect, double secondsPerFrame);
    void buildMenus();
    void fillCatalogueChoosers();
    void refreshSourceChooser();
    void chooseVideoSize(int index);
    void offerRestartForSize();
    void fillAudioMenu();
    void fillScreenMenu();
    void selectionChanged();
    void removeSelected();
    std::vector<int> selectedRows() const;
    void showSetupsWindow(int which);

    Lumaveil& lumaveil_;
    LVPreviewWidget* preview_ = nullptr;
    QListView* chainView_ = nullptr;
    LVChainModel* chainModel_ = nullptr;
    LVSettingsPanel* settings_ = nullptr;
    QComboBox* sourceChooser_ = nullptr;
    QComboBox* effectChooser_ = nullptr;
    QLabel* fpsLabel_ = nullptr;
    QLabel* refusedLabel_ = nullptr;
    bool previewOriginRestored_ = false;
    QMenu* videoSizeMenu_ = nullptr;
    QMenu* frameRateMenu_ = nullptr;
    QMenu* audioMenu_ = nullptr;
    QMenu* screenMenu_ = nullptr;
    QMenu* setupsMenu_ = nullptr;
    LVSetupManager* setupManager_ = nullptr;
    QActionGroup* sizeGroup_ = nullptr;
    std::function<void()> restart_;
    std::function<QString()> remoteControlStatus_;
    std::function<QString()> remoteControlLink_;
    LVRemoteControlWindow* remoteControlWindow_ = nullptr;
};
