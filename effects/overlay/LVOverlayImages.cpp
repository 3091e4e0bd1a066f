#include "effects/overlay/LVOverlayImages.h"

#include <QThreadPool>

LVOverlayImages::LVOverlayImages() : mailbox_(std::make_shared<Mailbox>()) {}

void LVOverlayImages::render(Job job)
{
    uint64_t generation = 0;
    {
        std::lock_guard lock(mailbox_->mutex);
        generation = ++mailbox_->started;
    }
    std::shared_ptr<Mailbox> mailbox = mailbox_;
    QThreadPool::globalInstance()->start([mailbox, generation, job = std::move(job)] {
        std::vector<QImage> images = job();
        std::lock_guard lock(mailbox->mutex);
        if (generation == mailbox->started) mailbox->ready = std::move(images);
        ++mailbox->finished;
        mailbox->finishedChanged.notify_all();
    });
}

void LVOverlayImages::upload(LVContext& ctx)
{
    std::optional<std::vector<QImage>> images;
    {
        std::lock_guard lock(mailbox_->mutex);
        images.swap(mailbox_->ready);
    }
    if (!images) return;
    release(&ctx);
    for (const QImage& image : *images) {
        LVTexture texture;
        if (!image.isNull()) texture.name = ctx.textureFromImage(image, &texture.width, &texture.height);
        textures_.push_back(texture);
    }
}

void LVOverlayImages::release(LVContext* ctx)
{
    if (textures_.empty()) return;
    if (ctx) {
        ctx->makeCurrent();
        for (const LVTexture& texture : textures_) {
            if (texture.name) glDeleteTextures(1, &texture.name);
        }
    }
    textures_.clear();
}

void LVOverlayImages::waitUntilIdle() const
{
    std::unique_lock lock(mailbox_->mutex);
    mailbox_->finishedChanged.wait(lock, [this] { return mailbox_->finished == mailbox_->started; });
}
