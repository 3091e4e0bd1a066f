#pragma once
// The studio window: Preview and Program monitors with the controls of the source on each
// bus, the transitions list, Cut, Transition, Dissolve, Clear, swap mode, the transition
// time and the frame-rate readout above the button grid. Acts only through the studio.
#include <QRect>
#include <QUrl>
#include <QWidget>

#include <functional>

class LVIconView;
class LVMonitorView;
class LVQuickSourceView;
class LVSettingsPanel;
class LVStudio;
class LVStudioButton;
class Lumaveil;
class QCheckBox;
class QDoubleSpinBox;
class QListWidget;
class QMainWindow;
class QMessageBox;
class QPushButton;
class QScrollArea;
class QSplitter;

class LVStudioController : public QWidget {
    Q_OBJECT
public:
    // Both must outlive the window; the monitors plug into the studio until it goes.
    LVStudioController(Lumaveil& app, LVStudio& studio, QWidget* parent = nullptr);
    ~LVStudioController() override;

    // A rectangle in its stored string form, "{{x, y}, {w, h}}", and back; anything
    // malformed reads as the zero rectangle.
    static QString frameString(const QRect& frame);
    static QRect parseFrame(const QString& text);
    // The tutorial page: installed beside the shared files, else in the source tree's docs.
    static QUrl tutorialUrl();
    // Adds "Window > Studio" (Ctrl+Shift+S) to a main window's menu bar, before Help.
    static void addMenuEntry(QMainWindow& mainWindow, const std::function<void()>& open);

    // The first-run offer, once ever: "No" first, "Yes" (opens the tutorial) second.
    void nag();
    QMessageBox* nagBox() const { return nagBox_; }
    void doNewButton();
    // Movies or images for a new button in Preview holding one quick source.
    void doQuickSource(const QStringList& movies, const QStringList& images);

    LVIconView* iconView() const { return iconView_; }
    LVMonitorView* previewMonitor() const { return previewMonitor_; }
    LVMonitorView* programMonitor() const { return programMonitor_; }
    LVSettingsPanel* previewControls() const { return previewControls_; }
    LVSettingsPanel* programControls() const { return programControls_; }
    QListWidget* transitionsList() const { return transitions_; }
    QPushButton* fpsButton() const { return fpsButton_; }
    QCheckBox* swapBox() const { return swapBox_; }
    QDoubleSpinBox* transitionTimeBox() const { return timeBox_; }
    LVQuickSourceView* quickSourceView() const { return quickSource_; }
    QSplitter* splitter() const { return splitter_; }

protected:
    bool event(QEvent* event) override;

private:
    QWidget* makeMonitorRow();
    QWidget* makeCommands();
    void watchButton(LVStudioButton* button);
    // The source's controls follow its button onto and off each bus.
    void buttonStateChanged(LVStudioButton* button, uint32_t oldState, uint32_t newState);
    void previewSetupsChanged();

    Lumaveil& app_;
    LVStudio& studio_;
    LVIconView* iconView_ = nullptr;
    QScrollArea* gridScroll_ = nullptr;
    LVMonitorView* previewMonitor_ = nullptr;
    LVMonitorView* programMonitor_ = nullptr;
    LVSettingsPanel* previewControls_ = nullptr;
    LVSettingsPanel* programControls_ = nullptr;
    QListWidget* transitions_ = nullptr;
    QPushButton* fpsButton_ = nullptr;
    QCheckBox* swapBox_ = nullptr;
    QDoubleSpinBox* timeBox_ = nullptr;
    LVQuickSourceView* quickSource_ = nullptr;
    QSplitter* splitter_ = nullptr;
    QMessageBox* nagBox_ = nullptr;
    bool shownOnce_ = false;
};
