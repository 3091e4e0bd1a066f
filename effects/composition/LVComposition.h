#pragma once
// One composition file, parsed: its inputs, passes, imported images and shader sources,
// ready to compile. Loaded once per path and modification time; a file that fails to
// parse is reported once and yields an invalid composition that draws nothing.
#include "core/LVParameter.h"

#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>
#include <optional>
#include <vector>

enum class LVISFInputType { Bool, Long, Float, Point2D, Color, Image, Event, Text, Audio };

struct LVISFInput {
    QString name;
    QString label;  // "LABEL", else the name
    LVISFInputType type = LVISFInputType::Float;
    QVariant defaultValue;
    QVariant minimum;
    QVariant maximum;
    QStringList labels;  // long: menu labels
    QList<int> values;   // long: menu values
    double fontScale = 1;  // text: size relative to "Font_Size"
    QMap<int, QVariantMap> presets;  // long: "PRESETS", what choosing a value sets in other inputs
    QJsonObject json;
};

struct LVISFPass {
    QString target;  // empty: renders only to the output
    bool persistent = false;
    bool floatTarget = false;
    QString widthExpr;   // empty: $WIDTH
    QString heightExpr;  // empty: $HEIGHT
    bool read = true;    // false when no pass samples the target (the pass is skipped)
};

// "CHANGES_ONLY": the rectangle, in pixels from the bottom left, outside which a filter
// passes its input through unchanged (a ticker's band). "READS_ONLY": the pixels of its image
// input a filter may read: inside the rectangle (when drawing the whole frame) and within
// MARGIN pixels of each pixel it writes. "FILLS_OUTSIDE": the rectangle outside which a filter
// writes its COLOR input (a colour input's name) and reads nothing (a crop's margins).
// "KEEPS_INSIDE": the rectangle inside which a filter passes its input through unchanged (a border).
// Expressions as in pass sizes; an empty one stands for the whole width or height, or for no limit.
struct LVISFArea {
    QString x;
    QString y;
    QString width;
    QString height;
    QString margin;
    QString color;
    bool hasRectangle() const { return !x.isEmpty() || !y.isEmpty() || !width.isEmpty() || !height.isEmpty(); }
};

struct LVISFImport {
    QString name;
    QString path;  // absolute
};

class LVComposition {
public:
    // Its compiled programs are freed with it.
    ~LVComposition();
    // The cached composition for the file (re-read when it changed on disk).
    static std::shared_ptr<const LVComposition> load(const QString& path);
    // Parses text as if read from path; vertexText empty when there is no companion shader.
    static std::shared_ptr<const LVComposition> parse(const QString& path, const QByteArray& text,
                                                      const QByteArray& vertexText);
    // Drops the cache (tests, refresh).
    static void clearCache();

    bool isValid() const { return error_.isEmpty(); }
    // "file:line: message" for the log.
    const QString& error() const { return error_; }
    const QString& path() const { return path_; }
    // Unique per loaded version; keys compiled programs.
    quint64 uid() const { return uid_; }

    const std::vector<LVISFInput>& inputs() const { return inputs_; }
    const LVISFInput* input(const QString& name) const;
    const std::vector<LVISFPass>& passes() const { return passes_; }
    const std::vector<LVISFImport>& imports() const { return imports_; }
    const QString& description() const { return description_; }
    const QString& credit() const { return credit_; }

    // The input that receives the chain's picture: "inputImage" or "_protocolInput_Image"
    // (an ISF transition's "startImage" too); empty for a generator.
    const QString& imageInputKey() const { return imageInputKey_; }
    const QString& previewInputKey() const { return previewInputKey_; }
    bool isFilter() const { return !imageInputKey_.isEmpty(); }
    bool isTransition() const { return isTransition_; }
    // Uses the image input at all; a filter that ignores it needs nothing drawn beneath.
    bool readsImageInput() const { return readsImageInput_; }
    // Reads its image input only at the pixel it writes, in one pass: it can run inside
    // the previous effect's shader.
    bool isPointwise() const { return pointwise_; }
    // One pass straight to the output, on the covering triangle: what it reads can be worked
    // out from its fragment shader alone.
    bool isOnePlainPass() const
    {
        return passes_.size() == 1 && passes_[0].target.isEmpty() && !hasVertexShader();
    }
    // Its last pass writes every pixel of the frame it is drawn into, when drawn unblended:
    // no companion vertex shader moves the triangle and no fragment is discarded.
    bool coversFrame() const { return coversFrame_; }
    // What the filter declares it changes; none: anything.
    const std::optional<LVISFArea>& changedArea() const { return changedArea_; }
    // What the filter declares it leaves as it is; none: nothing.
    const std::optional<LVISFArea>& keptArea() const { return keptArea_; }
    // What the filter declares it reads of its image input; none: anything.
    const std::optional<LVISFArea>& readArea() const { return readArea_; }
    // Where the filter declares it draws more than a colour; none: everywhere.
    const std::optional<LVISFArea>& filledArea() const { return filledArea_; }

    // Shader text after the header, with #version lines blanked (line numbers kept).
    const QString& fragmentSource() const { return fragmentSource_; }
    int fragmentFirstLine() const { return fragmentFirstLine_; }
    const QString& vertexSource() const { return vertexSource_; }
    bool hasVertexShader() const { return !vertexSource_.isEmpty(); }
    // Top-level names the shader declares (functions, constants, structs) and its macros:
    // renamed per stage when several compositions share one shader.
    const QStringList& globalNames() const { return globalNames_; }
    const QStringList& macroNames() const { return macroNames_; }
    // Bool, long and float inputs a branch of the shader depends on (compared, or a condition
    // themselves): a program may fix them as constants so the branch not taken costs nothing.
    const QStringList& switchInputs() const { return switchInputs_; }

    // The parameter list that editors, the archive and scripting read.
    LVParameterList parameters() const;

private:
    void parseHeader(const QJsonObject& header, const QString& folder);
    // A long input's "PRESETS": {"value": {"otherInput": value, ...}, ...}; empty when fine.
    QString parsePresets(LVISFInput& choice) const;
    void analyse();

    QString path_;
    quint64 uid_ = 0;
    QString error_;
    std::vector<LVISFInput> inputs_;
    std::vector<LVISFPass> passes_;
    std::vector<LVISFImport> imports_;
    QString description_;
    QString credit_;
    QString imageInputKey_;
    QString previewInputKey_;
    bool isTransition_ = false;
    bool readsImageInput_ = false;
    bool pointwise_ = false;
    bool coversFrame_ = false;
    std::optional<LVISFArea> changedArea_;
    std::optional<LVISFArea> keptArea_;
    std::optional<LVISFArea> readArea_;
    std::optional<LVISFArea> filledArea_;
    QString fragmentSource_;
    int fragmentFirstLine_ = 1;
    QString vertexSource_;
    QStringList globalNames_;
    QStringList macroNames_;
    QStringList switchInputs_;
    QJsonObject header_;
};

// The derived X and Y keys of a position pair ("Logo_X_Position" -> "Logo_"); empty base
// for keys that are not part of one.
QString LVISFPositionBase(const QString& key);
