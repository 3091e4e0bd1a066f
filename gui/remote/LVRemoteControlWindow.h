#pragma once
// The Remote Control window: turns the WebSocket remote control on and off, and shows and
// changes its port, password and whether other computers may connect. It edits the
// preferences only; the running server follows them. It also shows a one-time link to the
// web remote as a QR code, for a phone's camera.
#include <QWidget>

#include <functional>

class LVDefaults;
class QCheckBox;
class QLabel;
class QLineEdit;
class QSpinBox;
class QTimer;

class LVRemoteControlWindow : public QWidget {
    Q_OBJECT
public:
    // status gives the server's one-line state; may be empty. defaults must outlive the window.
    LVRemoteControlWindow(LVDefaults& defaults, std::function<QString()> status, QWidget* parent = nullptr);

    QCheckBox* enabledBox() const { return enabled_; }
    QSpinBox* portBox() const { return port_; }
    QCheckBox* allInterfacesBox() const { return allInterfaces_; }
    QLineEdit* passwordField() const { return password_; }
    QLabel* statusLabel() const { return status_; }
    QLabel* linkCodeLabel() const { return linkCode_; }
    QLabel* linkLabel() const { return link_; }

    // Where a fresh one-time link comes from; it answers empty when the page is not served.
    void setAccessLinkSource(std::function<QString()> source) { linkSource_ = std::move(source); }
    // Shows a fresh link and its QR code (or why there is none).
    void showAccessLink();

    // Stores the password field's text; an empty one is refused and the stored one shown again.
    void commitPassword();
    void makeNewPassword();

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void refresh();
    void refreshStatus();

    LVDefaults& defaults_;
    std::function<QString()> statusSource_;
    std::function<QString()> linkSource_;
    QCheckBox* enabled_;
    QSpinBox* port_;
    QCheckBox* allInterfaces_;
    QLineEdit* password_;
    QLabel* status_;
    QLabel* linkCode_;
    QLabel* link_;
    QTimer* statusTimer_;
};
