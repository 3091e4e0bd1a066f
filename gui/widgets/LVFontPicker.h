#pragma once
// Chooses a font family among those installed. A family that is not installed (a setup
// from another machine) stays chosen and is marked, so showing it loses nothing.
#include <QComboBox>

class LVFontPicker : public QComboBox {
    Q_OBJECT
public:
    explicit LVFontPicker(QWidget* parent = nullptr);

    QString family() const { return currentData().toString(); }
    // Emits nothing.
    void setFamily(const QString& family);

signals:
    // The user chose a family.
    void familyChosen(const QString& family);

private:
    int missingRow_ = -1; // the row of a chosen family that is not installed
};
