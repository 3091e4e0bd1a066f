#include "effects/composition/LVQCEffect.h"

#include "core/LVEffectRegistry.h"
#include "core/util/LVLog.h"

#include <QDir>
#include <QFileInfo>
#include <QRegion>

namespace {

bool& fusion()
{
    static bool enabled = qEnvironmentVariableIsEmpty("LUMAVEIL_NO_FUSION");
    return enabled;
}

// One fused shader binds at most this many textures (the GL 3.3 guarantee).
constexpr int kMaxFusedSamplers = 16;
constexpr size_t kMaxFusedStages = 8;

// The first count stages as a fused program is keyed: each composition with its inputs fixed now.
std::vector<LVISFVariant> variantsOf(const std::vector<std::shared_ptr<SimpleQCRenderer>>& stages, size_t count)
{
    std::vector<LVISFVariant> variants;
    for (size_t i = 0; i < count; ++i) variants.push_back({&stages[i]->composition(), stages[i]->constants()});
    return variants;
}

} // namespace

const LVEffectDescriptor& LVQCEffect::classDescriptor()
{
    // No catalogue name: compositions enter the catalogue through their files.
    static const LVEffectDescriptor descriptor{QStringLiteral("LVQCEffect"), QString(), LVEffectRole::Effect,
                                               [] { return std::make_unique<LVQCEffect>(); }, {}};
    return descriptor;
}

const LVEffectDescriptor& LVQCEffect::descriptor() const
{
    static const LVEffectDescriptor transition{classDescriptor().className, QString(), LVEffectRole::Transition,
                                               [] { return std::make_unique<LVQCEffect>(); }, {}};
    return rend_ && rend_->composition().isTransition() ? transition : classDescriptor();
}

LVEffectRef LVQCEffect::makeForFile(LVContext* context, const QString& fileName)
{
    auto effect = std::make_unique<LVQCEffect>();
    effect->initWithContext(context, fileName);
    return LVMakeEffectHandle(std::move(effect));
}

LVQCEffect::~LVQCEffect()
{
    if (context() && context()->qcRenderer() == this) context()->setQCRenderer(nullptr);
}

void LVQCEffect::setFusionEnabled(bool enabled)
{
    fusion() = enabled;
}

bool LVQCEffect::fusionEnabled()
{
    return fusion();
}

void LVQCEffect::initWithContext(LVContext* context, const QString& filename)
{
    initWithContextFile(context, filename);
}

void LVQCEffect::initWithContextFile(LVContext* context, const QString& filename)
{
    LVEffect::initWithContext(context);
    fname_ = filename;
    // A fresh effect is kept even when its composition cannot be used.
    initQCEffectCommon();
}

bool LVQCEffect::initWithCoder(LVKeyedUnarchiver& coder)
{
    if (!LVEffect::initWithCoder(coder)) return false;
    fname_ = coder.decodeString(QStringLiteral("fileName"));
    if (!initQCEffectCommon()) return false;
    for (const QString& key : std::as_const(patchAttributes_)) {
        if (!coder.containsValueForKey(key)) continue;
        for (const LVParameter& parameter : properties_) {
            if (parameter.key == key) restoreParameterValue(key, parameter.fromJson(coder.decodeValue(key)));
        }
    }
    makeInspector();
    return true;
}

void LVQCEffect::encodeWithCoder(LVKeyedArchiver& coder) const
{
    LVEffect::encodeWithCoder(coder);
    coder.encodeString(QStringLiteral("fileName"), fname_);
}

QString LVQCEffect::resolvePath(QString* problem) const
{
    *problem = QStringLiteral("not found in the Effects folders");
    LVEffectRegistry* registry = LVEffectRegistry::current();
    if (fname_.startsWith(QStringLiteral("./"))) {
        // Inside the application's resources: the folder that holds the bundled Effects, and
        // nothing outside it (an archive may say "./../../etc/shadow").
        const QString bundled = registry ? registry->folders().bundled : LVEffectFolders::standard().bundled;
        const QString root = QDir::cleanPath(bundled + QStringLiteral("/.."));
        const QString path = QDir::cleanPath(root + QLatin1Char('/') + fname_.mid(2));
        // By name, then once more with links followed.
        const QString realRoot = QFileInfo(root).canonicalFilePath();
        const QString realPath = QFileInfo(path).canonicalFilePath();
        if (!path.startsWith(root + QLatin1Char('/')) ||
            (!realPath.isEmpty() && !realPath.startsWith(realRoot + QLatin1Char('/')))) {
            *problem = QStringLiteral("is outside the Effects folders; refused");
            return {};
        }
        return realPath;
    }
    // Catalogue names only: a name with a folder in it is no composition of ours.
    if (fname_.contains(QLatin1Char('/'))) {
        *problem = QStringLiteral("is outside the Effects folders; refused");
        return {};
    }
    return registry ? registry->effectPathFromFilename(fname_) : QString();
}

bool LVQCEffect::initQCEffectCommon()
{
    if (name().isEmpty()) setName(LVQCEffectFactory::nameFromPath(fname_));
    properties_.clear();
    patchAttributes_.clear();
    if (!context()) {
        LVLog("Composition effect %s has no render context", qPrintable(fname_));
        return false;
    }
    QString problem;
    const QString path = resolvePath(&problem);
    if (path.isEmpty()) {
        LVLog("Composition %s %s", qPrintable(fname_), qPrintable(problem));
        rend_.reset();
    } else {
        rend_ = std::make_shared<SimpleQCRenderer>(context(), path);
    }
    imageInputKey_.clear();
    isPreviewInputKey_.clear();
    if (rend_) {
        const LVComposition& c = rend_->composition();
        imageInputKey_ = c.imageInputKey();
        for (const LVISFInput& input : c.inputs()) {
            if (input.name == QLatin1String("_protocolInput_PreviewMode") ||
                input.name == QLatin1String("protocolInput_PreviewMode")) {
                isPreviewInputKey_ = input.name;
                break;
            }
            if (input.name == QLatin1String("LVPatchTimeResetInPreview"))
                bFreezeTimeInPreview_ = rend_->valueForInputKey(input.name).toBool();
        }
    }
    makeInspector();
    return true;
}

void LVQCEffect::makeInspector()
{
    properties_.clear();
    patchAttributes_.clear();
    if (!rend_) return;
    properties_ = rend_->composition().parameters();
    for (const LVParameter& parameter : properties_) {
        if (parameter.editor != LVParameterEditor::FixedText) patchAttributes_ << parameter.key;
    }
}

QStringList LVQCEffect::inspectorNotes() const
{
    QStringList notes;
    if (!rend_) return notes;
    if (!rend_->composition().description().isEmpty()) notes << rend_->composition().description();
    if (!rend_->composition().credit().isEmpty()) notes << QStringLiteral("Credit: %1").arg(rend_->composition().credit());
    return notes;
}

void LVQCEffect::parameterChanged(const QString& key)
{
    if (rend_) rend_->setValue(parameterValue(key), key);
}

bool LVQCEffect::setMode(int32_t newMode)
{
    if (rend_ && !isPreviewInputKey_.isEmpty()) rend_->setNonGifValue(newMode == LVModePreview, isPreviewInputKey_);
    // Time starts at the first frame drawn: an effect made before the render loop's first frame
    // (command line, setup, auto-load) would otherwise count from a frame time of zero.
    if (mode() == LVModeOff && newMode != LVModeOff) baseTime_.reset();
    return LVEffect::setMode(newMode);
}

bool LVQCEffect::canTakeOver(const LVQCEffect& previous) const
{
    if (!fusion() || !rend_->composition().isPointwise() || previous.pending_.empty() ||
        previous.pending_.size() >= kMaxFusedStages)
        return false;
    const LVComposition& head = previous.pending_.front()->composition();
    if (head.hasVertexShader() || !head.passes().back().target.isEmpty()) return false;
    std::vector<LVISFVariant> stages = variantsOf(previous.pending_, previous.pending_.size());
    stages.push_back({&rend_->composition(), rend_->constants()});
    const LVISFProgram* program = LVISFFusedProgramFor(stages);
    return program && program->samplers.size() <= kMaxFusedSamplers;
}

void LVQCEffect::doit()
{
    // A composition that did not load or compile draws nothing; the chain goes on.
    if (!rend_ || !rend_->isUsable()) return;
    LVContext& ctx = *context();
    if (!baseTime_ || (bFreezeTimeInPreview_ && mode() == LVModePreview)) baseTime_ = ctx.frameTime();
    rend_->beginFrame(ctx.frameTime() - *baseTime_);

    if (!rend_->usesFilterProtocol()) {
        ctx.framebuffer();
        rend_->renderIntermediatePasses();
        ctx.framebuffer();
        rend_->drawFinalPass(true);
        rend_->endFrame();
        return;
    }

    auto* previous = dynamic_cast<LVQCEffect*>(ctx.qcRenderer());
    if (previous && previous != this && rend_->composition().readsImageInput() && canTakeOver(*previous)) {
        // Runs inside the previous effect's shader: its picture is never stored.
        pending_ = std::move(previous->pending_);
        previous->pending_.clear();
        pending_.push_back(rend_);
        ctx.setQCRenderer(this);
        return;
    }
    if (rend_->composition().readsImageInput()) {
        rend_->setTextureForInputKey(ctx.texture(), imageInputKey_);
    }
    // A filter that ignores its input needs nothing drawn beneath it, and one that writes
    // every pixel needs no clear beneath it either.
    ctx.resetUncleared();
    rend_->renderIntermediatePasses();
    pending_.assign(1, rend_);
    ctx.setQCRenderer(this);
}

bool LVQCEffect::coversEveryPixel() const
{
    if (pending_.empty()) return false;
    for (const auto& stage : pending_)
        if (!stage->isUsable() || !stage->composition().coversFrame()) return false;
    return true;
}

namespace {

// One filter's pass under the scissor within (none: the whole frame). A crop's margins are a
// clear, not a pass over them: a clear of the whole frame is a fill of memory, while a scissored
// one costs llvmpipe a pass, so that one covers the margins only.
void drawAlone(LVContext& ctx, SimpleQCRenderer& stage, const std::optional<QRect>& within)
{
    const auto fill = fusion() ? stage.fill() : std::nullopt;
    const QRect frame(0, 0, ctx.width(), ctx.height());
    const QRect region = within.value_or(frame);
    const QRect drawn = fill ? fill->drawn & region : region;
    const QRegion margins = QRegion(region) - QRegion(drawn);
    if (margins.isEmpty()) {
        stage.drawFinalPass(false);
        return;
    }
    glClearColor(fill->colour[0], fill->colour[1], fill->colour[2], fill->colour[3]);
    if (region == frame) {
        glClear(GL_COLOR_BUFFER_BIT);
    } else {
        for (const QRect& margin : margins) {
            LVContext::setScissor(margin);
            glClear(GL_COLOR_BUFFER_BIT);
        }
    }
    if (!drawn.isEmpty()) {
        LVContext::setScissor(drawn);
        stage.drawFinalPass(false);
    }
    LVContext::setScissor(within);
}

} // namespace

bool LVQCEffect::drawStages(LVContext& ctx, const Stages& stages, size_t count, const std::optional<QRect>& within)
{
    if (count == 1) {
        drawAlone(ctx, *stages[0], within);
        return true;
    }
    const LVISFProgram* program = LVISFFusedProgramFor(variantsOf(stages, count));
    if (!program) return false;
    const bool blending = glIsEnabled(GL_BLEND);
    glDisable(GL_BLEND);
    glViewport(0, 0, ctx.width(), ctx.height());
    glUseProgram(program->program);
    int unit = 0;
    for (size_t i = 0; i < count; ++i)
        stages[i]->applyUniforms(*program, int(i), QSize(ctx.width(), ctx.height()), &unit);
    stages[count - 1]->drawTriangle();
    glActiveTexture(GL_TEXTURE0);
    glUseProgram(0);
    if (blending) glEnable(GL_BLEND);
    return true;
}

std::optional<QRect> LVQCEffect::inputAreaFor(const QRect& output, QSize frame) const
{
    // One that will not draw (its program broken or still being built) reads nothing, and the
    // picture before it is then read by whoever comes next: better whole. Asks for no program:
    // working this out must not start a build.
    if (!rend_ || !LVISFProgramIsReady(rend_->composition()) || !rend_->usesFilterProtocol() ||
        rend_->outputSize() != frame)
        return std::nullopt;
    return rend_->inputAreaFor(output);
}

bool LVQCEffect::drawOverlaysInPlace(LVContext& ctx, const Stages& stages, const std::optional<QRect>& within)
{
    size_t first = stages.size();
    std::optional<QRegion> area;
    for (; first > 0; --first) {
        const SimpleQCRenderer& stage = *stages[first - 1];
        if (!stage.composition().isPointwise()) break;
        const std::optional<QRegion> changed = stage.changedArea();
        if (!changed) break;
        area = area ? area->united(*changed) : *changed;
    }
    if (!area) return false;
    if (within) *area &= *within;
    if (first == 0) {
        LVTexture input = stages[0]->inputFrame();
        if (!input.name || input.width != ctx.width() || input.height != ctx.height()) return false;
        // The overlays draw over their input itself, reading a copy of their area only, unless
        // someone else still shows that picture: then it is copied whole, a frame's write.
        const QString& key = stages[0]->composition().imageInputKey();
        for (const QRect& part : *area) ctx.copyIntoFrame(input, part);
        stages[0]->setTextureForInputKey(ctx.texture(), key);
        if (!ctx.drawOverFrame(input)) {
            ctx.copyIntoFrame(input);
            stages[0]->setTextureForInputKey(input, key);
        }
    } else if (!drawStages(ctx, stages, first, within)) {
        return false;
    }
    for (const QRect& part : *area) {
        LVContext::setScissor(part);
        drawStages(ctx, stages, stages.size(), part);
    }
    LVContext::setScissor(within);
    return true;
}

void LVQCEffect::drawPendingOutput(LVContext& ctx)
{
    const auto stages = std::move(pending_);
    pending_.clear();
    if (stages.empty()) return;
    // Only what the rest of the chain reads; a pass target keeps its whole picture for the
    // next frame, so a run that ends in one is drawn whole.
    std::optional<QRect> within = areaRead();
    if (!stages.back()->composition().passes().back().target.isEmpty()) within.reset();
    LVContext::setScissor(within);
    if (!within || !within->isEmpty()) {
        if (!fusion() || !drawOverlaysInPlace(ctx, stages, within)) drawStages(ctx, stages, stages.size(), within);
    }
    LVContext::setScissor(std::nullopt);
    for (const auto& stage : stages) stage->endFrame();
}

void LVQCEffect::doTransitionTo(const LVTexture& other, double percentage)
{
    if (!rend_) return;
    const bool isf = rend_->composition().input(QStringLiteral("endImage")) != nullptr &&
                     rend_->composition().input(QStringLiteral("targetImage")) == nullptr;
    rend_->setTextureForInputKey(other, isf ? QStringLiteral("endImage") : QStringLiteral("targetImage"));
    rend_->setNonGifValue(percentage, isf ? QStringLiteral("progress") : QStringLiteral("transitionTime"));
    doit();
}
