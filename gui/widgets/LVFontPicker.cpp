#include "gui/widgets/LVFontPicker.h"

#include <QFontDatabase>
#include <QSignalBlocker>

LVFontPicker::LVFontPicker(QWidget* parent) : QComboBox(parent)
{
    setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    setMinimumContentsLength(12);
    for (const QString& family : QFontDatabase::families()) {
        if (!QFontDatabase::isPrivateFamily(family)) addItem(family, family);
    }
    connect(this, &QComboBox::activated, this, [this](int row) { emit familyChosen(itemData(row).toString()); });
}

void LVFontPicker::setFamily(const QString& family)
{
    const QSignalBlocker block(this);
    if (missingRow_ >= 0) {
        removeItem(missingRow_);
        missingRow_ = -1;
    }
    int row = findData(family, Qt::UserRole, Qt::MatchFixedString);
    if (row < 0 && !family.isEmpty()) {
        insertItem(0, tr("%1 (not installed)").arg(family), family);
        missingRow_ = row = 0;
    }
    setCurrentIndex(row);
}
