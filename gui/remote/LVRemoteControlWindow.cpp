#include "gui/remote/LVRemoteControlWindow.h"

#include "control/websocket/LVRemoteControlService.h"
#include "core/LVDefaults.h"
#include "gui/remote/LVQRCode.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QTimer>

namespace {

using Service = LVRemoteControlService;
const QString kEnabled = QLatin1String(Service::enabledKey);
const QString kPort = QLatin1String(Service::portKey);
const QString kPassword = QLatin1String(Service::passwordKey);
const QString kAllInterfaces = QLatin1String(Service::allInterfacesKey);
constexpr int kDefaultPort = Service::defaultPort;

} // namespace

LVRemoteControlWindow::LVRemoteControlWindow(LVDefaults& defaults, std::function<QString()> status, QWidget* parent)
    : QWidget(parent, Qt::Window), defaults_(defaults), statusSource_(std::move(status)),
      enabled_(new QCheckBox(tr("Let control surfaces and apps drive Lumaveil"))), port_(new QSpinBox),
      allInterfaces_(new QCheckBox(tr("Accept connections from other computers"))), password_(new QLineEdit),
      status_(new QLabel), linkCode_(new QLabel), link_(new QLabel), statusTimer_(new QTimer(this))
{
    setWindowTitle(tr("Remote Control"));
    setObjectName(QStringLiteral("remoteControlWindow"));
    port_->setRange(1, 65535);
    auto* newPassword = new QPushButton(tr("New Password"));
    newPassword->setObjectName(QStringLiteral("newPassword"));
    auto* passwordRow = new QHBoxLayout;
    passwordRow->addWidget(password_);
    passwordRow->addWidget(newPassword);
    status_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    status_->setWordWrap(true);

    auto* form = new QFormLayout(this);
    form->addRow(enabled_);
    form->addRow(tr("Port:"), port_);
    form->addRow(tr("Password:"), passwordRow);
    form->addRow(allInterfaces_);
    form->addRow(status_);
    auto* showLink = new QPushButton(tr("Link for a Phone"));
    showLink->setObjectName(QStringLiteral("showAccessLink"));
    showLink->setToolTip(tr("A link that opens the web remote signed in, once, within ten minutes"));
    link_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    link_->setWordWrap(true);
    linkCode_->setAlignment(Qt::AlignCenter);
    form->addRow(showLink);
    form->addRow(linkCode_);
    form->addRow(link_);
    connect(showLink, &QPushButton::clicked, this, &LVRemoteControlWindow::showAccessLink);

    connect(enabled_, &QCheckBox::toggled, this, [this](bool on) { defaults_.setValue(kEnabled, on); });
    connect(allInterfaces_, &QCheckBox::toggled, this, [this](bool on) { defaults_.setValue(kAllInterfaces, on); });
    connect(port_, &QSpinBox::editingFinished, this, [this] { defaults_.setValue(kPort, port_->value()); });
    connect(password_, &QLineEdit::editingFinished, this, &LVRemoteControlWindow::commitPassword);
    connect(newPassword, &QPushButton::clicked, this, &LVRemoteControlWindow::makeNewPassword);
    connect(&defaults_, &LVDefaults::valueChanged, this, [this](const QString& key) {
        if (key.startsWith(QLatin1String("remoteControl"))) refresh();
    });
    // Clients come and go without a preference changing; the line is re-read while shown.
    connect(statusTimer_, &QTimer::timeout, this, &LVRemoteControlWindow::refreshStatus);
    refresh();
}

void LVRemoteControlWindow::refresh()
{
    const QSignalBlocker blockEnabled(enabled_);
    const QSignalBlocker blockAll(allInterfaces_);
    enabled_->setChecked(defaults_.boolForKey(kEnabled));
    allInterfaces_->setChecked(defaults_.boolForKey(kAllInterfaces));
    const int port = defaults_.hasStoredValue(kPort) ? defaults_.integerForKey(kPort) : kDefaultPort;
    if (!port_->hasFocus()) port_->setValue(port >= 1 && port <= 65535 ? port : kDefaultPort);
    if (!password_->hasFocus()) password_->setText(defaults_.stringForKey(kPassword));
    refreshStatus();
}

void LVRemoteControlWindow::showAccessLink()
{
    const QString link = linkSource_ ? linkSource_() : QString();
    if (link.isEmpty()) {
        linkCode_->clear();
        link_->setText(tr("Turn the remote control on first; the link opens the web remote it serves."));
        return;
    }
    linkCode_->setPixmap(QPixmap::fromImage(LVQRCodeImage(link)));
    link_->setText(link);
}

void LVRemoteControlWindow::refreshStatus()
{
    // The server applies a change on its next turn; the line follows it a moment later.
    status_->setText(statusSource_ ? statusSource_() : QString());
}

void LVRemoteControlWindow::commitPassword()
{
    const QString text = password_->text().trimmed();
    if (text.isEmpty()) {
        password_->setText(defaults_.stringForKey(kPassword));
        return;
    }
    if (text != defaults_.stringForKey(kPassword)) defaults_.setValue(kPassword, text);
}

void LVRemoteControlWindow::makeNewPassword()
{
    const QString password = Service::makePassword();
    password_->setText(password);
    defaults_.setValue(kPassword, password);
}

void LVRemoteControlWindow::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    refresh();
    statusTimer_->start(1000);
}

void LVRemoteControlWindow::hideEvent(QHideEvent* event)
{
    statusTimer_->stop();
    QWidget::hideEvent(event);
}
