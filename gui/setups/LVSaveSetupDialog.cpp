#include "gui/setups/LVSaveSetupDialog.h"

#include "core/LVEffect.h"
#include "setups/model/LVSetupManager.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>

LVSaveSetupDialog::LVSaveSetupDialog(LVSetupManager& manager, const LVSetupsHost& host, const QString& prefillName,
                                     QWidget* parent)
    : QDialog(parent),
      manager_(manager),
      host_(host),
      nameField_(new QLineEdit(prefillName, this)),
      selectionOnly_(new QCheckBox(tr("Save only the selected effects"), this)),
      omitSource_(new QCheckBox(tr("Leave out the source"), this))
{
    setWindowTitle(tr("Save Setup"));
    const std::vector<LVEffectRef> chain = host_.liveEffects ? host_.liveEffects() : std::vector<LVEffectRef>{};
    const std::vector<int> selected = host_.selectedRows ? host_.selectedRows() : std::vector<int>{};
    const size_t n = chain.size();
    const bool hasSource = n > 0 && chain.front()->isSource();

    selectionOnly_->setChecked(false);
    selectionOnly_->setEnabled(n != 1 && !selected.empty());
    // A chain that is only a source is always saved whole.
    omitSource_->setChecked(!(hasSource && n == 1));
    omitSource_->setEnabled(hasSource && n != 1);

    auto* form = new QFormLayout;
    form->addRow(tr("Setup name:"), nameField_);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &LVSaveSetupDialog::doSaveOk);
    connect(buttons, &QDialogButtonBox::rejected, this, &LVSaveSetupDialog::doSaveCancel);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(selectionOnly_);
    layout->addWidget(omitSource_);
    layout->addWidget(buttons);
    nameField_->selectAll();
}

std::vector<LVEffectRef> LVSaveSetupDialog::effectsToSave(const std::vector<LVEffectRef>& chain,
                                                          const std::vector<int>& selectedRows, bool selectionOnly,
                                                          bool omitSource)
{
    std::vector<LVEffectRef> list;
    if (selectionOnly) {
        std::vector<int> rows = selectedRows;
        std::sort(rows.begin(), rows.end());
        rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
        for (int row : rows) {
            if (row >= 0 && size_t(row) < chain.size()) list.push_back(chain[size_t(row)]);
        }
        return list;
    }
    const size_t start = omitSource && !chain.empty() && chain.front()->isSource() ? 1 : 0;
    list.assign(chain.begin() + std::ptrdiff_t(std::min(start, chain.size())), chain.end());
    return list;
}

void LVSaveSetupDialog::doSaveOk()
{
    const QString name = nameField_->text();
    if (name.isEmpty()) return;
    const auto chain = host_.liveEffects ? host_.liveEffects() : std::vector<LVEffectRef>{};
    const auto selected = host_.selectedRows ? host_.selectedRows() : std::vector<int>{};
    const auto effects = effectsToSave(chain, selected, selectionOnly_->isChecked(), omitSource_->isChecked());
    QString error;
    const LVSavedSetupRef setup = manager_.newSavedSetupWithName(name, effects, &error);
    if (!setup) {
        auto* box = new QMessageBox(QMessageBox::Warning, tr("Save Setup"), error, QMessageBox::Ok, this);
        box->setAttribute(Qt::WA_DeleteOnClose);
        box->open();
        return;
    }
    const QImage frame = manager_.currentFrame();
    if (!frame.isNull()) setup->snapshotIcon(frame);
    emit setupSaved(name);
    accept();
}
