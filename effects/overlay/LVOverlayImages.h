#pragma once
// Pictures an effect draws over the frame (text, cover art). They are made on a worker thread,
// since laying out text and decoding images takes milliseconds a frame cannot spare, and
// uploaded on the render thread the first frame after they are ready.
#include "render/LVContext.h"

#include <QImage>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

class LVOverlayImages {
public:
    using Job = std::function<std::vector<QImage>()>;

    // Textures belong to the owner's context, which frees them with release(); a job still
    // running when this goes only writes into the mailbox it shares.
    LVOverlayImages();
    LVOverlayImages(const LVOverlayImages&) = delete;
    LVOverlayImages& operator=(const LVOverlayImages&) = delete;

    // Starts job on the shared worker pool. The job must own what it reads: it may outlive
    // this object. Only the last job started is delivered; older ones are dropped as they end,
    // so a quick succession of changes never shows an outdated picture.
    void render(Job job);
    // Render thread: takes a finished set and uploads it (freeing the textures it replaces).
    void upload(LVContext& ctx);
    // What the last finished job made, in its order; a null image gives an empty texture.
    const std::vector<LVTexture>& textures() const { return textures_; }
    // Frees the textures; ctx is the context they were made in.
    void release(LVContext* ctx);
    // Blocks until every job started so far has finished (tests).
    void waitUntilIdle() const;

private:
    struct Mailbox {
        mutable std::mutex mutex;
        mutable std::condition_variable finishedChanged;
        uint64_t started = 0;
        uint64_t finished = 0;
        std::optional<std::vector<QImage>> ready;
    };

    std::shared_ptr<Mailbox> mailbox_;
    std::vector<LVTexture> textures_;
};
