#pragma once
// The "Slide Show" source: a list of image files shown one at a time, each fitted into the
// video size, advancing after an interval. Files come from drops (folders are walked) or
// from an album: a sub-folder of the user's Pictures folder.
#include "core/LVControllerInterfaces.h"
#include "core/LVEffect.h"
#include "render/LVGL.h"

#include <QImage>
#include <QRectF>
#include <QVariantMap>

#include <memory>
#include <vector>

class LVImageLoader;

class SlideShow : public LVEffect, public LVFileDropReceiver {
public:
    SlideShow();
    ~SlideShow() override;

    static const LVEffectDescriptor& classDescriptor();
    const LVEffectDescriptor& descriptor() const override { return classDescriptor(); }

    struct Entry {
        QString path;
        QString name;
    };

    void initWithContext(LVContext* context) override;
    bool initWithCoder(LVKeyedUnarchiver& coder) override;
    void encodeWithCoder(LVKeyedArchiver& coder) const override;
    void destruct() override;
    void doit() override;
    LVParameterList effectProperties() const override;

    // Folders are walked: every path below, hidden names at the top level skipped, each
    // sub-folder dropped again (so deeper files come more than once, as always); anything
    // else is added as it is.
    void addFileDrop(const QString& path) override;
    void addFile(const QString& path, const QString& name);
    // A drop on the list: auto-clear empties it first. False when no files were dropped.
    bool dropFiles(const QStringList& paths);
    void doClear();
    const std::vector<Entry>& files() const { return files_; }

    double interval() const { return interval_; }
    void setInterval(double seconds) { setParameterValue(QStringLiteral("interval"), seconds); }
    bool isPaused() const { return parameterValue(QStringLiteral("paused")).toBool(); }
    void setPaused(bool paused) { setParameterValue(QStringLiteral("paused"), paused); }
    bool autoClear() const { return parameterValue(QStringLiteral("autoClear")).toBool(); }
    void setAutoClear(bool on) { setParameterValue(QStringLiteral("autoClear"), on); }

    // The user picked a row: it shows at once, paused or not.
    void selectRow(int row);
    // Delete (127), forward delete (63272) and clear line (63294) remove the selected row.
    void deleteKeyPressed(int character, int selectedRow);
    int32_t nextImageNumber() const { return nextImageNumber_; }
    double nextImageTime() const { return nextImageTime_; }
    // The row on show (-1 before the first).
    int shownRow() const { return shownRow_; }
    // The image on show as decoded (scaled to fit the video size), for tests.
    const QImage& shownImage() const { return shownImage_; }

    // Albums: the sub-folders of the user's Pictures folder, "name" and "id" (the path).
    static std::vector<QVariantMap> albumList();
    const std::vector<QVariantMap>& albums() const { return albums_; }
    // Lists the albums (on) or none (off).
    void doIPhotoCheck(bool on);
    // Index into albums(); -1 for none. Replaces the list by the album's images.
    void setCurrentAlbum(int index);
    QVariantMap currentAlbum() const { return currentAlbum_; }

    // Waits until the images asked for are decoded (tests).
    void waitForImages();

protected:
    void parameterChanged(const QString& key) override;

private:
    void intervalChanged(double oldInterval, double newInterval);
    void drawNextImage();
    void showDecoded();
    void setupLoader();

    std::vector<Entry> files_;
    int32_t nextImageNumber_ = 0;
    double nextImageTime_ = 0;
    double interval_ = 4.0;
    GLuint currentImage_ = 0;
    QRectF currentImageRect_;
    std::unique_ptr<LVImageLoader> loader_;
    QString wantedPath_; // decoding; shown when it arrives
    int wantedRow_ = -1;
    int shownRow_ = -1;
    QImage shownImage_;
    std::vector<QVariantMap> albums_;
    QVariantMap currentAlbum_;
    bool syncing_ = false;
};

// Registers the slide show source kind.
void LVRegisterSlideShowKinds();
