#include "effects/composition/LVISFProgram.h"

#include "core/util/LVLog.h"
#include "render/LVGLContext.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>
#include <climits>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <condition_variable>
#include <deque>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <tuple>

namespace {

const char* kCommonMacros = R"(#define texture2D texture
#define texture2DProj textureProj
#define texture2DLod textureLod
#define texture2DRect texture
#define sampler2DRect sampler2D
#define IMG_SIZE(img) vec2(textureSize(img, 0))
#define IMG_NORM_PIXEL(img, c) texture(img, c)
#define IMG_PIXEL(img, c) texture(img, (c) / vec2(textureSize(img, 0)))
#define IMG_THIS_NORM_PIXEL(img) texture(img, isf_FragNormCoord)
#define IMG_THIS_PIXEL(img) texture(img, isf_FragNormCoord)
#define IMG_NORM_PIXEL_2D(img, size, c) texture(img, c)
#define IMG_PIXEL_2D(img, size, c) texture(img, (c) / (size))
#define vv_FragNormCoord isf_FragNormCoord
)";

const QStringList& perStageBuiltins()
{
    static const QStringList names = {QStringLiteral("PASSINDEX"), QStringLiteral("TIME"), QStringLiteral("TIMEDELTA"),
                                      QStringLiteral("FRAMEINDEX"), QStringLiteral("DATE")};
    return names;
}

bool isImageType(LVISFInputType type)
{
    return type == LVISFInputType::Image || type == LVISFInputType::Text || type == LVISFInputType::Audio;
}

// Every name the shader samples: image inputs, pass targets, imported images.
QStringList imageNames(const LVComposition& c)
{
    QStringList names;
    for (const LVISFInput& in : c.inputs()) {
        if (isImageType(in.type)) names << in.name;
    }
    for (const LVISFPass& pass : c.passes()) {
        if (!pass.target.isEmpty()) names << pass.target;
    }
    for (const LVISFImport& import : c.imports()) names << import.name;
    names.removeDuplicates();
    return names;
}

// Where each image lies in its texture, its size and orientation, as ISF hosts declare them.
QString imageCompanions(const QString& name)
{
    return QStringLiteral("uniform vec4 %1;\nuniform vec2 %2;\nuniform bool %3;\n")
        .arg(LVISFImageRectName(name), LVISFImageSizeName(name), LVISFImageFlipName(name));
}

QString uniformType(LVISFInputType type)
{
    switch (type) {
    case LVISFInputType::Bool:
    case LVISFInputType::Event: return QStringLiteral("bool");
    case LVISFInputType::Long: return QStringLiteral("int");
    case LVISFInputType::Float: return QStringLiteral("float");
    case LVISFInputType::Point2D: return QStringLiteral("vec2");
    case LVISFInputType::Color: return QStringLiteral("vec4");
    case LVISFInputType::Image:
    case LVISFInputType::Text:
    case LVISFInputType::Audio: return QStringLiteral("sampler2D");
    }
    return {};
}

// Uniforms of one composition: built-ins kept per stage, inputs, pass targets, imports.
// PASSINDEX is a constant, so each pass's program holds only that pass's branch: a
// software rasteriser would otherwise run every pass's code in every pass.
QString declarations(const LVComposition& c, bool skipImageInput, int pass, const LVISFConstants& constants)
{
    QString s = QStringLiteral("const int PASSINDEX = %1;\nuniform float TIME;\nuniform float TIMEDELTA;\n"
                               "uniform int FRAMEINDEX;\nuniform vec4 DATE;\n")
                    .arg(pass);
    for (const LVISFInput& in : c.inputs()) {
        if (skipImageInput && in.name == c.imageInputKey()) continue;
        const auto fixed = std::find_if(constants.begin(), constants.end(), [&](const auto& k) { return k.first == in.name; });
        if (fixed != constants.end())
            s += QStringLiteral("const %1 %2 = %3;\n").arg(uniformType(in.type), in.name, fixed->second);
        else
            s += QStringLiteral("uniform %1 %2;\n").arg(uniformType(in.type), in.name);
    }
    for (const LVISFPass& pass : c.passes()) {
        if (!pass.target.isEmpty()) s += QStringLiteral("uniform sampler2D %1;\n").arg(pass.target);
    }
    for (const LVISFImport& import : c.imports()) s += QStringLiteral("uniform sampler2D %1;\n").arg(import.name);
    for (const QString& name : imageNames(c)) s += imageCompanions(name);
    return s;
}

QString vertexText(const LVComposition* c, int pass, const LVISFConstants& constants)
{
    QString s = QStringLiteral("#version 330 core\n#define attribute in\n#define varying out\n");
    s += QLatin1String(kCommonMacros);
    s += QStringLiteral("out vec2 isf_FragNormCoord;\nuniform vec2 RENDERSIZE;\n");
    if (c && c->hasVertexShader()) s += declarations(*c, false, pass, constants);
    // One triangle that covers the viewport; no vertex buffers needed.
    s += QStringLiteral("void isf_vertShaderInit() {\n"
                        "    vec2 p = vec2(float((gl_VertexID << 1) & 2), float(gl_VertexID & 2));\n"
                        "    gl_Position = vec4(p * 2.0 - 1.0, 0.0, 1.0);\n"
                        "    isf_FragNormCoord = p;\n}\n"
                        "#define vv_vertShaderInit isf_vertShaderInit\n");
    if (c && c->hasVertexShader()) s += QStringLiteral("#line 1\n") + c->vertexSource();
    else s += QStringLiteral("void main() { isf_vertShaderInit(); }\n");
    return s;
}

// The chain's picture is always the size of the output, so a shader drawn at that size
// reads its own pixel with a plain fetch: a quarter of the work of a filtered sample
// on a software rasteriser, and the same value.
QString fetchThisPixel(QString source, const QString& key)
{
    const QRegularExpression read(
        QStringLiteral("\\bIMG_THIS_(NORM_)?PIXEL\\s*\\(\\s*%1\\s*\\)").arg(QRegularExpression::escape(key)));
    return source.replace(read, QStringLiteral("texelFetch(%1, ivec2(gl_FragCoord.xy), 0)").arg(key));
}

QString fragmentText(const LVComposition& c, int pass, const LVISFConstants& constants)
{
    QString s = QStringLiteral("#version 330 core\n#define varying in\n");
    s += QLatin1String(kCommonMacros);
    s += QStringLiteral("#define gl_FragColor lv_FragColor\nout vec4 lv_FragColor;\nin vec2 isf_FragNormCoord;\n"
                        "uniform vec2 RENDERSIZE;\n");
    s += declarations(c, false, pass, constants);
    const QString source = c.isPointwise() ? fetchThisPixel(c.fragmentSource(), c.imageInputKey()) : c.fragmentSource();
    s += QStringLiteral("#line %1\n").arg(c.fragmentFirstLine()) + source;
    return s;
}

QString fusedFragmentText(const std::vector<LVISFVariant>& stages)
{
    QString s = QStringLiteral("#version 330 core\n#define varying in\n");
    s += QLatin1String(kCommonMacros);
    s += QStringLiteral("out vec4 lv_FragColor;\nin vec2 isf_FragNormCoord;\nuniform vec2 RENDERSIZE;\n"
                        "vec4 lv_stageInput;\nvec4 lv_stageOutput;\n");
    for (size_t i = 0; i < stages.size(); ++i) {
        const LVComposition& c = *stages[i].composition;
        QStringList renamed = perStageBuiltins();
        for (const LVISFInput& in : c.inputs()) renamed << in.name;
        for (const LVISFPass& pass : c.passes()) {
            if (!pass.target.isEmpty()) renamed << pass.target;
        }
        for (const LVISFImport& import : c.imports()) renamed << import.name;
        for (const QString& name : imageNames(c))
            renamed << LVISFImageRectName(name) << LVISFImageSizeName(name) << LVISFImageFlipName(name);
        renamed << c.globalNames();
        renamed.removeDuplicates();
        const QString prefix = QStringLiteral("lv_s%1_").arg(i);
        s += QStringLiteral("#define main %1main\n#define gl_FragColor lv_stageOutput\n").arg(prefix);
        for (const QString& name : renamed) s += QStringLiteral("#define %1 %2%1\n").arg(name, prefix);
        s += declarations(c, i > 0, int(c.passes().size()) - 1, stages[i].constants);
        QString source = c.fragmentSource();
        if (i > 0) {
            // The previous stage's pixel stands in for this one's image input.
            const QRegularExpression read(QStringLiteral("\\bIMG_THIS_(NORM_)?PIXEL\\s*\\(\\s*%1\\s*\\)")
                                              .arg(QRegularExpression::escape(c.imageInputKey())));
            source.replace(read, QStringLiteral("lv_stageInput"));
        } else if (c.isFilter()) {
            source = fetchThisPixel(source, c.imageInputKey());
        }
        s += QStringLiteral("#line %1\n").arg(c.fragmentFirstLine()) + source + QLatin1Char('\n');
        s += QStringLiteral("#undef main\n#undef gl_FragColor\n");
        for (const QString& name : renamed) s += QStringLiteral("#undef %1\n").arg(name);
        for (const QString& name : c.macroNames()) s += QStringLiteral("#undef %1\n").arg(name);
    }
    s += QStringLiteral("void main() {\n    lv_stageOutput = vec4(0.0);\n    lv_s0_main();\n");
    // Each stage reads what an 8-bit frame would hold: rounded to even, decoded as c * (1/255).
    for (size_t i = 1; i < stages.size(); ++i) {
        s += QStringLiteral("    lv_stageInput = roundEven(clamp(lv_stageOutput, 0.0, 1.0) * 255.0) * (1.0 / 255.0);\n"
                            "    lv_stageOutput = vec4(0.0);\n    lv_s%1_main();\n")
                 .arg(i);
    }
    s += QStringLiteral("    lv_FragColor = lv_stageOutput;\n}\n");
    return s;
}

// "0:12(5): error: ..." from Mesa becomes "file:12: error: ...".
QString formatLog(const QString& log, const QString& file)
{
    static const QRegularExpression mesa(QStringLiteral("^\\s*\\d+:(\\d+)\\((\\d+)\\):\\s*(.*)$"));
    QStringList lines;
    for (const QString& line : log.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const auto m = mesa.match(line);
        lines << (m.hasMatch() ? QStringLiteral("%1:%2: %3").arg(file, m.captured(1), m.captured(3))
                               : QStringLiteral("%1: %2").arg(file, line.trimmed()));
    }
    return lines.join(QLatin1Char('\n'));
}

GLuint compile(GLenum kind, const QString& text, const QString& file, QString* error)
{
    const GLuint shader = glCreateShader(kind);
    const QByteArray bytes = text.toUtf8();
    const char* src = bytes.constData();
    const GLint length = GLint(bytes.size());
    glShaderSource(shader, 1, &src, &length);
    glCompileShader(shader);
    GLint ok = 0;
    glGetShaderiv(shader, GL_COMPILE_STATUS, &ok);
    if (!ok) {
        GLint size = 0;
        glGetShaderiv(shader, GL_INFO_LOG_LENGTH, &size);
        QByteArray log(std::max(size, 1), '\0');
        glGetShaderInfoLog(shader, size, nullptr, log.data());
        *error = formatLog(QString::fromUtf8(log.constData()), file);
        glDeleteShader(shader);
        return 0;
    }
    return shader;
}

std::unique_ptr<LVISFProgram> link(const QString& vertex, const QString& fragment, const QString& vertexFile,
                                   const QString& fragmentFile, QString* error)
{
    const GLuint vs = compile(GL_VERTEX_SHADER, vertex, vertexFile, error);
    if (!vs) return nullptr;
    const GLuint fs = compile(GL_FRAGMENT_SHADER, fragment, fragmentFile, error);
    if (!fs) {
        glDeleteShader(vs);
        return nullptr;
    }
    auto program = std::make_unique<LVISFProgram>();
    program->program = glCreateProgram();
    glAttachShader(program->program, vs);
    glAttachShader(program->program, fs);
    glLinkProgram(program->program);
    glDeleteShader(vs);
    glDeleteShader(fs);
    GLint ok = 0;
    glGetProgramiv(program->program, GL_LINK_STATUS, &ok);
    if (!ok) {
        GLint size = 0;
        glGetProgramiv(program->program, GL_INFO_LOG_LENGTH, &size);
        QByteArray log(std::max(size, 1), '\0');
        glGetProgramInfoLog(program->program, size, nullptr, log.data());
        *error = formatLog(QString::fromUtf8(log.constData()), fragmentFile);
        glDeleteProgram(program->program);
        return nullptr;
    }
    GLint count = 0;
    glGetProgramiv(program->program, GL_ACTIVE_UNIFORMS, &count);
    for (GLint i = 0; i < count; ++i) {
        char name[256];
        GLsizei nameLength = 0;
        GLint arraySize = 0;
        GLenum type = 0;
        glGetActiveUniform(program->program, GLuint(i), sizeof name, &nameLength, &arraySize, &type, name);
        const QString uniform = QString::fromLatin1(name, nameLength);
        program->uniforms.insert(uniform, glGetUniformLocation(program->program, name));
        if (type == GL_SAMPLER_2D) program->samplers << uniform;
    }
    return program;
}

// A composition's own programs: by composition, variant and pass.
using OwnKey = std::tuple<quint64, LVISFConstants, int>;
// A composition's passes built together: by composition and variant.
using OwnJobKey = std::pair<quint64, LVISFConstants>;
using FusedKey = std::vector<OwnJobKey>;

// Variants of one composition held at once; a new one replaces the one least recently used.
constexpr size_t kMaxVariants = 8;

struct ProgramCache {
    std::map<OwnKey, std::unique_ptr<LVISFProgram>> own; // null: did not compile
    std::map<FusedKey, std::unique_ptr<LVISFProgram>> fused;
    std::map<quint64, QString> errors;                   // by composition: why its passes did not compile
    std::map<quint64, std::map<LVISFConstants, quint64>> variants; // by composition: variant -> last asked
    quint64 asks = 0;
};

ProgramCache& programs()
{
    static ProgramCache cache;
    return cache;
}

// One program to build: a composition's passes, or a fused program of several.
struct BuildJob {
    OwnJobKey ownKey{0, {}};  // for own programs
    int passCount = 0;        // for own programs
    FusedKey fusedKey;        // for a fused program
    struct Stage {
        QString vertex, fragment, vertexFile, fragmentFile;
    };
    std::vector<Stage> stages;
    QString path; // for the error line
    std::vector<std::unique_ptr<LVISFProgram>> made; // filled by the builder; empty: failed
    QString error;
};

bool driverTakesGLSL420()
{
    static const bool takes = [] {
        const auto* text = reinterpret_cast<const char*>(glGetString(GL_SHADING_LANGUAGE_VERSION));
        int major = 0, minor = 0;
        if (!text || std::sscanf(text, "%d.%d", &major, &minor) != 2) return false;
        return major * 100 + minor >= 420;
    }();
    return takes;
}

constexpr const char* kRenamedKeywordPrefix = "lv_kw_";

// Shaders written for desktop GL 2.x compilers return an int from a float function or
// initialise a uint from an int literal; GLSL 4.20 converts those implicitly. Words that
// became keywords after 3.30 stay plain names there. The #line after the preamble keeps
// the file's line numbers.
QString relaxedDialect(const QString& text)
{
    static const QString version = QStringLiteral("#version 330 core\n");
    QString preamble = QStringLiteral("#version 420 core\n");
    for (const char* word : {"sample", "patch", "subroutine", "precise", "coherent", "restrict", "readonly", "writeonly",
                             "atomic_uint"})
        preamble += QStringLiteral("#define %1 %2%1\n").arg(QLatin1String(word), QLatin1String(kRenamedKeywordPrefix));
    return text.startsWith(version) ? preamble + text.mid(version.size()) : text;
}

void build(BuildJob& job)
{
    for (const BuildJob::Stage& stage : job.stages) {
        job.made.push_back(link(stage.vertex, stage.fragment, stage.vertexFile, stage.fragmentFile, &job.error));
        if (!job.made.back() && driverTakesGLSL420()) {
            job.error.clear();
            job.made.back() = link(relaxedDialect(stage.vertex), relaxedDialect(stage.fragment), stage.vertexFile,
                                   stage.fragmentFile, &job.error);
            job.error.replace(QLatin1String(kRenamedKeywordPrefix), QString()); // the user's own names
        }
        if (!job.made.back()) {
            job.made.clear();
            return;
        }
    }
}

// The worker: one thread, one GL context sharing objects with the render context.
class Worker {
public:
    static Worker*& instance()
    {
        static Worker* worker = nullptr;
        return worker;
    }

    bool start(QString* error)
    {
        std::promise<QString> made;
        std::future<QString> ready = made.get_future();
        thread_ = std::thread([this, &made] { run(made); });
        const QString problem = ready.get();
        if (!problem.isEmpty()) {
            thread_.join();
            if (error) *error = problem;
            return false;
        }
        return true;
    }

    bool stop(double graceSeconds)
    {
        std::unique_lock lock(mutex_);
        stopping_ = true;
        held_ = false;
        wake_.notify_all();
        const bool finished = idle_.wait_for(lock, std::chrono::duration<double>(graceSeconds), [this] { return exited_; });
        lock.unlock();
        if (finished) {
            thread_.join();
        } else {
            thread_.detach();
        }
        return finished;
    }

    void submit(std::unique_ptr<BuildJob> job)
    {
        std::lock_guard lock(mutex_);
        queue_.push_back(std::move(job));
        ++pending_;
        wake_.notify_all();
    }

    std::vector<std::unique_ptr<BuildJob>> takeFinished()
    {
        std::lock_guard lock(mutex_);
        std::vector<std::unique_ptr<BuildJob>> finished = std::move(done_);
        done_.clear();
        return finished;
    }

    void filed(int count)
    {
        std::lock_guard lock(mutex_);
        pending_ -= count;
        idle_.notify_all();
    }

    bool waitUntilIdle(double seconds)
    {
        std::unique_lock lock(mutex_);
        return idle_.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return int(done_.size()) == pending_; });
    }

    void hold(bool held)
    {
        std::lock_guard lock(mutex_);
        held_ = held;
        wake_.notify_all();
    }

private:
    void run(std::promise<QString>& made)
    {
        QString error;
        std::unique_ptr<LVGLContext> gl = LVGLContext::makeOffscreenGLContext(&error);
        if (!gl) {
            made.set_value(QStringLiteral("the program builder's GL context: %1").arg(error));
            return;
        }
        gl->makeCurrent();
        made.set_value(QString());
        std::unique_lock lock(mutex_);
        for (;;) {
            wake_.wait(lock, [this] { return stopping_ || (!held_ && !queue_.empty()); });
            if (stopping_) break;
            std::unique_ptr<BuildJob> job = std::move(queue_.front());
            queue_.pop_front();
            lock.unlock();
            build(*job);
            // Finished on this context before the render context uses the objects.
            glFinish();
            lock.lock();
            done_.push_back(std::move(job));
            idle_.notify_all();
        }
        lock.unlock();
        gl->doneCurrent();
        gl.reset();
        lock.lock();
        exited_ = true;
        idle_.notify_all();
    }

    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::condition_variable idle_;
    std::deque<std::unique_ptr<BuildJob>> queue_;
    std::vector<std::unique_ptr<BuildJob>> done_; // built, not yet taken by the render thread
    int pending_ = 0;                             // submitted and not yet taken
    bool stopping_ = false;
    bool exited_ = false;
    bool held_ = false;
};

std::set<OwnJobKey> pendingOwn;
std::set<FusedKey> pendingFused;

bool& variantsEnabled()
{
    static bool enabled = qEnvironmentVariableIsEmpty("LUMAVEIL_NO_VARIANTS");
    return enabled;
}

// Versions of compositions that are gone (re-read, or no longer used). Any thread may drop
// the last reference, GL objects go only on the render thread: the programs are freed at its
// next ask. Never destroyed, since compositions may still go while the process exits.
struct DeadCompositions {
    std::mutex mutex;
    std::vector<quint64> uids;
    std::atomic<bool> any{false};
};

DeadCompositions& deadCompositions()
{
    static auto* dead = new DeadCompositions;
    return *dead;
}

void deleteProgram(std::unique_ptr<LVISFProgram>& program)
{
    if (program) glDeleteProgram(program->program);
    program.reset();
}

bool fusedKeyHolds(const FusedKey& key, quint64 uid)
{
    return std::any_of(key.begin(), key.end(), [uid](const OwnJobKey& stage) { return stage.first == uid; });
}

bool isPending(quint64 uid)
{
    for (const auto& key : pendingOwn)
        if (key.first == uid) return true;
    for (const auto& key : pendingFused)
        if (fusedKeyHolds(key, uid)) return true;
    return false;
}

void freeDeadPrograms()
{
    DeadCompositions& dead = deadCompositions();
    if (!dead.any.load(std::memory_order_acquire)) return;
    std::vector<quint64> uids;
    {
        std::lock_guard lock(dead.mutex);
        uids.swap(dead.uids);
        dead.any = false;
    }
    std::vector<quint64> later;
    ProgramCache& cache = programs();
    for (const quint64 uid : uids) {
        // A program still being built is freed once it is filed.
        if (isPending(uid)) {
            later.push_back(uid);
            continue;
        }
        for (auto it = cache.own.lower_bound(OwnKey{uid, {}, INT_MIN});
             it != cache.own.end() && std::get<0>(it->first) == uid;) {
            deleteProgram(it->second);
            it = cache.own.erase(it);
        }
        for (auto it = cache.fused.begin(); it != cache.fused.end();) {
            if (fusedKeyHolds(it->first, uid)) {
                deleteProgram(it->second);
                it = cache.fused.erase(it);
            } else {
                ++it;
            }
        }
        cache.errors.erase(uid);
        cache.variants.erase(uid);
    }
    if (later.empty()) return;
    std::lock_guard lock(dead.mutex);
    dead.uids.insert(dead.uids.end(), later.begin(), later.end());
    dead.any = true;
}

QString describe(const LVISFConstants& constants)
{
    QStringList fixed;
    for (const auto& [name, literal] : constants) fixed << QStringLiteral("%1 = %2").arg(name, literal);
    return fixed.join(QStringLiteral(", "));
}

// Files a built (or failed) set of a composition's passes.
void fileOwn(BuildJob& job)
{
    const auto& [uid, constants] = job.ownKey;
    if (job.made.empty() && constants.empty()) {
        LVLog("Composition %s does not compile:\n%s", qPrintable(job.path), qPrintable(job.error));
        programs().errors.emplace(uid, job.error);
    } else if (job.made.empty()) {
        // Ours, not the user's: the general program still draws it.
        LVLog("Composition %s with %s fixed does not compile; its general program draws it:\n%s", qPrintable(job.path),
              qPrintable(describe(constants)), qPrintable(job.error));
    }
    for (int i = 0; i < job.passCount; ++i)
        programs().own.emplace(OwnKey(uid, constants, i), job.made.empty() ? nullptr : std::move(job.made[size_t(i)]));
}

void fileFused(BuildJob& job)
{
    programs().fused.emplace(job.fusedKey, job.made.empty() ? nullptr : std::move(job.made.front()));
}

// Files what the worker has built, then frees what is no longer used; runs on the render thread.
void takeFinished()
{
    struct FreeDeadAfterwards {
        ~FreeDeadAfterwards() { freeDeadPrograms(); }
    } freeDead;
    Worker* worker = Worker::instance();
    if (!worker) return;
    std::vector<std::unique_ptr<BuildJob>> finished = worker->takeFinished();
    if (finished.empty()) return;
    for (auto& job : finished) {
        if (job->fusedKey.empty()) {
            fileOwn(*job);
            pendingOwn.erase(job->ownKey);
        } else {
            fileFused(*job);
            pendingFused.erase(job->fusedKey);
        }
    }
    // Counted down last, so waitUntilIdle answers only once the programs are filed.
    worker->filed(int(finished.size()));
}

bool variantPending(const OwnJobKey& variant)
{
    if (pendingOwn.count(variant)) return true;
    for (const auto& key : pendingFused)
        if (std::find(key.begin(), key.end(), variant) != key.end()) return true;
    return false;
}

// Frees a variant's own programs and the fused ones it is part of.
void evict(const OwnJobKey& variant)
{
    ProgramCache& cache = programs();
    for (auto it = cache.own.lower_bound(OwnKey{variant.first, variant.second, INT_MIN});
         it != cache.own.end() && std::get<0>(it->first) == variant.first && std::get<1>(it->first) == variant.second;) {
        deleteProgram(it->second);
        it = cache.own.erase(it);
    }
    for (auto it = cache.fused.begin(); it != cache.fused.end();) {
        if (std::find(it->first.begin(), it->first.end(), variant) != it->first.end()) {
            deleteProgram(it->second);
            it = cache.fused.erase(it);
        } else {
            ++it;
        }
    }
}

// Whether this variant may be drawn with: a new one takes the place of the one asked for least
// recently (never one still being built) once the composition holds kMaxVariants.
bool admitted(quint64 uid, const LVISFConstants& constants)
{
    ProgramCache& cache = programs();
    auto& variants = cache.variants[uid];
    const quint64 now = ++cache.asks;
    const auto known = variants.find(constants);
    if (known != variants.end()) {
        known->second = now;
        return true;
    }
    if (variants.size() >= kMaxVariants) {
        auto oldest = variants.end();
        for (auto it = variants.begin(); it != variants.end(); ++it) {
            if (variantPending({uid, it->first})) continue;
            if (oldest == variants.end() || it->second < oldest->second) oldest = it;
        }
        if (oldest == variants.end()) return false;
        evict({uid, oldest->first});
        variants.erase(oldest);
    }
    variants.emplace(constants, now);
    return true;
}

// The program of one variant's pass: built on the worker (null meanwhile) or here.
const LVISFProgram* ownProgram(const LVComposition& c, int pass, const LVISFConstants& constants)
{
    auto& own = programs().own;
    const auto it = own.find(OwnKey(c.uid(), constants, pass));
    if (it != own.end()) return it->second.get();
    OwnJobKey key(c.uid(), constants);
    if (pendingOwn.count(key)) return nullptr;
    // Every pass at once, so a broken shader is reported once and none of it runs.
    const QFileInfo info(c.path());
    const QString vertexFile = info.dir().filePath(info.completeBaseName() + QStringLiteral(".vs"));
    auto job = std::make_unique<BuildJob>();
    job->ownKey = key;
    job->passCount = int(c.passes().size());
    job->path = c.path();
    for (int i = 0; i < job->passCount; ++i)
        job->stages.push_back({vertexText(&c, i, constants), fragmentText(c, i, constants), vertexFile, c.path()});
    if (Worker* worker = Worker::instance()) {
        pendingOwn.insert(std::move(key));
        worker->submit(std::move(job));
        return nullptr;
    }
    build(*job);
    fileOwn(*job);
    return own.find(OwnKey(c.uid(), constants, pass))->second.get();
}

const LVISFProgram* fusedProgram(const std::vector<LVISFVariant>& stages)
{
    FusedKey key;
    for (const LVISFVariant& stage : stages) key.emplace_back(stage.composition->uid(), stage.constants);
    auto& fused = programs().fused;
    const auto it = fused.find(key);
    if (it != fused.end()) return it->second.get();
    if (pendingFused.count(key)) return nullptr;
    auto job = std::make_unique<BuildJob>();
    job->fusedKey = std::move(key);
    job->stages.push_back({vertexText(nullptr, 0, {}), fusedFragmentText(stages), QStringLiteral("(fused)"),
                           QStringLiteral("(fused)")});
    // Not an error for the user while it is missing: the effects then run one after another.
    if (Worker* worker = Worker::instance()) {
        pendingFused.insert(job->fusedKey);
        worker->submit(std::move(job));
        return nullptr;
    }
    build(*job);
    fileFused(*job);
    return fused.find(job->fusedKey)->second.get();
}

} // namespace

bool LVISFProgramBuilder::startWorker(QString* error)
{
    if (Worker::instance()) return true;
    auto worker = std::make_unique<Worker>();
    if (!worker->start(error)) return false;
    Worker::instance() = worker.release();
    return true;
}

bool LVISFProgramBuilder::stopWorker(double graceSeconds)
{
    Worker* worker = Worker::instance();
    if (!worker) return true;
    Worker::instance() = nullptr;
    pendingOwn.clear();
    pendingFused.clear();
    if (!worker->stop(graceSeconds)) return false; // left to the process's end: it may still touch itself
    delete worker;
    return true;
}

bool LVISFProgramBuilder::hasWorker()
{
    return Worker::instance() != nullptr;
}

int LVISFProgramBuilder::pendingCount()
{
    return int(pendingOwn.size() + pendingFused.size());
}

bool LVISFProgramBuilder::waitUntilIdle(double seconds)
{
    Worker* worker = Worker::instance();
    if (!worker) return true;
    const bool idle = worker->waitUntilIdle(seconds);
    takeFinished();
    return idle && pendingCount() == 0;
}

void LVISFProgramBuilder::holdWorker(bool hold)
{
    if (Worker* worker = Worker::instance()) worker->hold(hold);
}

void LVISFCompositionGone(quint64 uid)
{
    DeadCompositions& dead = deadCompositions();
    std::lock_guard lock(dead.mutex);
    dead.uids.push_back(uid);
    dead.any.store(true, std::memory_order_release);
}

size_t LVISFProgramCount()
{
    size_t count = 0;
    for (const auto& entry : programs().own) count += entry.second ? 1 : 0;
    for (const auto& entry : programs().fused) count += entry.second ? 1 : 0;
    return count;
}

bool LVISFProgramIsReady(const LVComposition& composition)
{
    const auto& own = programs().own;
    const auto it = own.find(OwnKey(composition.uid(), {}, 0));
    return it != own.end() && it->second;
}

QString LVISFProgramError(const LVComposition& composition)
{
    const auto it = programs().errors.find(composition.uid());
    return it != programs().errors.end() ? it->second : QString();
}

QString LVISFImageRectName(const QString& image)
{
    return QStringLiteral("_%1_imgRect").arg(image);
}

QString LVISFImageSizeName(const QString& image)
{
    return QStringLiteral("_%1_imgSize").arg(image);
}

QString LVISFImageFlipName(const QString& image)
{
    return QStringLiteral("_%1_flip").arg(image);
}

QString LVISFUniformName(int stage, const QString& name)
{
    return stage < 0 ? name : QStringLiteral("lv_s%1_%2").arg(stage).arg(name);
}

QString LVISFFragmentShaderText(const LVComposition& composition, int pass, const LVISFConstants& constants)
{
    return fragmentText(composition, pass, constants);
}

QString LVISFVertexShaderText(const LVComposition* composition, int pass)
{
    return vertexText(composition, pass, {});
}

void LVISFSetVariantsEnabled(bool enabled)
{
    variantsEnabled() = enabled;
}

const LVISFProgram* LVISFProgramFor(const LVComposition& c, int pass, const LVISFConstants& constants)
{
    if (!c.isValid() || pass < 0 || pass >= int(c.passes().size())) return nullptr;
    takeFinished();
    // The general program first: it draws while a variant is built and whenever settings leave it.
    const LVISFProgram* general = ownProgram(c, pass, {});
    if (!general || constants.empty() || !variantsEnabled() || !admitted(c.uid(), constants)) return general;
    const LVISFProgram* variant = ownProgram(c, pass, constants);
    return variant ? variant : general;
}

const LVISFProgram* LVISFFusedProgramFor(const std::vector<LVISFVariant>& stages)
{
    takeFinished();
    std::vector<LVISFVariant> general = stages;
    for (LVISFVariant& stage : general) stage.constants.clear();
    const LVISFProgram* program = fusedProgram(general);
    if (!program || !variantsEnabled()) return program;
    std::vector<LVISFVariant> fixed = stages;
    bool anyFixed = false;
    for (LVISFVariant& stage : fixed) {
        if (!stage.constants.empty() && !admitted(stage.composition->uid(), stage.constants)) stage.constants.clear();
        anyFixed = anyFixed || !stage.constants.empty();
    }
    const LVISFProgram* variant = anyFixed ? fusedProgram(fixed) : nullptr;
    return variant ? variant : program;
}
