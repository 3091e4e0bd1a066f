#include "sources/pipewire/LVPipeWireSources.h"

#include "core/util/LVLog.h"

#include <QCoreApplication>
#include <QThread>

#include <gst/gst.h>

#include <atomic>
#include <map>

namespace {

// A node as the grabber sees it: it reads the node by name, and only while the node is there,
// because the session manager would link a reader whose node is missing to some other node.
class LVPipeWireNodeDevice : public LVCamDevice {
public:
    LVPipeWireNodeDevice(QString name, QString description, std::shared_ptr<const std::atomic<bool>> present)
        : name_(std::move(name)), description_(std::move(description)), present_(std::move(present))
    {
    }
    QString uniqueID() const override { return QStringLiteral("pipewire:") + name_; }
    QString localizedName() const override { return description_; }
    // Whatever the node offers; the grabber converts it.
    std::vector<LVCamFormat> formats() const override { return {}; }
    GstElement* createElement(QString* error) const override
    {
        if (!present_->load()) {
            if (error) *error = QStringLiteral("the PipeWire node \"%1\" is not there").arg(name_);
            return nullptr;
        }
        GstElement* source = gst_element_factory_make("pipewiresrc", nullptr);
        if (!source) {
            if (error) *error = QStringLiteral("gst_element_factory_make: pipewiresrc is missing (gstreamer1.0-pipewire)");
            return nullptr;
        }
        // Never moved to another node when this one leaves.
        GstStructure* props = gst_structure_new("props", "node.dont-reconnect", G_TYPE_STRING, "true", nullptr);
        g_object_set(source, "target-object", name_.toUtf8().constData(), "client-name", "Lumaveil",
                     "stream-properties", props, nullptr);
        gst_structure_free(props);
        return source;
    }

private:
    QString name_;
    QString description_;
    std::shared_ptr<const std::atomic<bool>> present_;
};

struct Known {
    std::shared_ptr<std::atomic<bool>> present = std::make_shared<std::atomic<bool>>(false);
    QString description;
    std::weak_ptr<LVCamGrabber> grabber;
};

struct State {
    std::unique_ptr<LVPipeWireNodeWatch> watch;
    bool started = false;
    bool postRoutine = false;
    bool failureLogged = false;
    std::vector<LVPipeWireNode> present;
    std::map<QString, Known> known; // by node name
    uint64_t generation = 0;
};

State& state()
{
    static State s;
    return s;
}

LVCamDeviceRef deviceFor(const QString& name, const Known& known)
{
    return std::make_shared<LVPipeWireNodeDevice>(name, known.description, known.present);
}

// Main thread: takes in the watch's list and tells the grabbers of nodes that left or came back.
void takeList()
{
    State& s = state();
    if (!s.watch) return;
    std::vector<LVPipeWireNode> nodes = s.watch->nodes();
    if (nodes == s.present) return;
    s.present = std::move(nodes);
    for (auto& [name, known] : s.known) {
        const auto found = std::find_if(s.present.begin(), s.present.end(),
                                        [&](const LVPipeWireNode& node) { return node.name == name; });
        const bool here = found != s.present.end();
        if (here) known.description = found->description;
        if (known.present->exchange(here) == here) continue;
        LVCamGrabber::Ref grabber = known.grabber.lock();
        if (!grabber) continue;
        if (here) grabber->deviceReturned(deviceFor(name, known));
        else grabber->deviceRemoved();
    }
    ++s.generation;
}

void start()
{
    State& s = state();
    if (s.started) return;
    s.started = true;
    QString error;
    s.watch = LVPipeWireNodeWatch::create(&error);
    if (!s.watch) {
        if (!s.failureLogged) LVLog("PipeWire video nodes cannot be listed: %s", qPrintable(error));
        s.failureLogged = true;
        return;
    }
    s.watch->setChangeHandler([] {
        // The watch's thread: the list belongs to the main thread.
        if (QCoreApplication* app = QCoreApplication::instance())
            QMetaObject::invokeMethod(app, &takeList, Qt::QueuedConnection);
    });
    s.watch->sync(2000);
    takeList();
    if (!s.postRoutine && QCoreApplication::instance()) {
        qAddPostRoutine(&LVPipeWireSources::shutdown);
        s.postRoutine = true;
    }
}

} // namespace

const std::vector<LVPipeWireNode>& LVPipeWireSources::nodes()
{
    start();
    return state().present;
}

uint64_t LVPipeWireSources::listGeneration()
{
    return state().generation;
}

LVCamGrabber::Ref LVPipeWireSources::grabberFor(const QString& name, const QString& description)
{
    start();
    State& s = state();
    Known& known = s.known[name];
    if (LVCamGrabber::Ref grabber = known.grabber.lock()) return grabber;
    const auto found = std::find_if(s.present.begin(), s.present.end(),
                                    [&](const LVPipeWireNode& node) { return node.name == name; });
    known.present->store(found != s.present.end());
    known.description = found != s.present.end() ? found->description : description;
    auto grabber = std::make_shared<LVCamGrabber>(deviceFor(name, known), known.description);
    // Waits for the node instead of retrying a reader that cannot connect.
    if (!known.present->load()) grabber->deviceRemoved();
    known.grabber = grabber;
    return grabber;
}

bool LVPipeWireSources::refresh(int limitMs)
{
    start();
    State& s = state();
    if (!s.watch || !s.watch->sync(limitMs)) return false;
    takeList();
    return true;
}

void LVPipeWireSources::shutdown()
{
    State& s = state();
    s.watch.reset();
    s.started = false;
    s.present.clear();
    s.known.clear();
    ++s.generation;
}
