#pragma once
// Pure rules for editing the live chain from the user interface: moving dragged rows and
// sorting dropped files into images and movies.
#include <QStringList>

#include <algorithm>
#include <vector>

// Moves the dragged rows (indexes into rows) to dropRow so they end up together there,
// keeping their relative order. Rows are walked from the highest index down: a row above
// the drop point moves to one before it (and the drop point moves up); a row at or below
// it moves to the drop point, shifted by the rows already moved there.
template <class T>
void LVReorderRows(std::vector<T>& rows, std::vector<int> dragged, int dropRow)
{
    std::sort(dragged.begin(), dragged.end());
    dragged.erase(std::unique(dragged.begin(), dragged.end()), dragged.end());
    const int count = int(rows.size());
    if (dropRow < 0) dropRow = 0;
    if (dropRow > count) dropRow = count;
    int r = dropRow;
    int k = 0;
    auto move = [&rows](int from, int to) {
        T row = std::move(rows[size_t(from)]);
        rows.erase(rows.begin() + from);
        rows.insert(rows.begin() + to, std::move(row));
    };
    for (auto it = dragged.rbegin(); it != dragged.rend(); ++it) {
        const int i = *it;
        if (i < 0 || i >= count) continue;
        if (i < r) {
            --r;
            move(i, r);
        } else {
            if (i + k >= count) continue;
            move(i + k, r);
            ++k;
        }
    }
}

struct LVDroppedFiles {
    QStringList images;
    QStringList movies;
};

// Files whose content or name says image go to images, video to movies; others are ignored.
LVDroppedFiles LVClassifyDroppedFiles(const QStringList& paths);
