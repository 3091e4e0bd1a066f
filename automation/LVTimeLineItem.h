#pragma once
// One step of a timeline: an action (a subclass of LVTimeLineItem) with its settings kept by
// key in LVTimeLineAtributes, a one-line description, an inspector that edits the settings
// by key, and execute() run by the timeline. LVTimeLineItemHolder is the list's row.
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>

#include <memory>
#include <vector>

class LVTimeLine;
class LVTimeLineManager;

// An action's settings: every change raises dirty, which the owning item turns into a
// description refresh and a save.
class LVTimeLineAtributes : public QObject {
    Q_OBJECT
public:
    void setValueForKey(const QVariant& value, const QString& key);
    QVariant valueForKey(const QString& key) const { return dict_.value(key); }
    // A default at creation: stored without raising dirty.
    void setInitialValue(const QString& key, const QVariant& value) { dict_.insert(key, value); }
    bool dirty() const { return dirty_; }
    const QVariantMap& dict() const { return dict_; }
    // Archived as {"dictionary": {...}}.
    QJsonObject encode() const;
    void decode(const QJsonObject& archived);

signals:
    void dirtyChanged();

private:
    QVariantMap dict_;
    bool dirty_ = false;
};

// Refusal of an edit: the platform's validation error, kept with its domain and code.
struct LVValidationError {
    QString domain;
    int code = 0;
    QString description;
};

// One editor of an inspector, bound to a settings key.
struct LVInspectorField {
    enum Kind { MenuPicker, TextEditor, BooleanEditor, Text };
    Kind kind = Text;
    QString key;   // empty for Text
    QString label; // the editor's label, or the note's text
    QStringList items; // MenuPicker's entries
};

class LVTimeLineItem : public QObject {
    Q_OBJECT
public:
    LVTimeLineItem();
    ~LVTimeLineItem() override;

    // The class's display name, the offered order and the archived class name.
    virtual QString name() const = 0;
    virtual QString className() const = 0;
    virtual QString description() const { return name(); }
    // The editors of the inspector, with the menus rebuilt now; none by default.
    virtual std::vector<LVInspectorField> inspector(const LVTimeLineManager& manager) const;
    // The platform's key-value validation; everything is valid by default.
    virtual bool validateValueForKey(const QVariant& value, const QString& key, LVValidationError* error) const;
    virtual void execute(LVTimeLine& timeLine);

    LVTimeLineAtributes& attributes() { return attributes_; }
    const LVTimeLineAtributes& attributes() const { return attributes_; }
    bool isRunning() const { return bRunning_; }
    void setRunning(bool running);
    // "timeline arrow.tif" while the timeline rests here, else an empty name.
    QString statusImage() const;
    // Set by the timeline that holds the step; its manager saves on every change.
    void setTimeLine(LVTimeLine* timeLine) { timeLine_ = timeLine; }
    LVTimeLine* timeLine() const { return timeLine_; }

    QJsonObject encode() const;

    // The offered actions' display names, in order.
    static QStringList offeredNames();
    // A fresh action of that display name; none for an unknown name.
    static std::unique_ptr<LVTimeLineItem> itemWithName(const QString& name);
    static std::unique_ptr<LVTimeLineItem> decode(const QJsonObject& archived);

signals:
    void descriptionChanged();
    void statusImageChanged();

protected:
    virtual void processDirty();
    void setDefault(const QString& key, const QVariant& value) { attributes_.setInitialValue(key, value); }

private:
    LVTimeLineAtributes attributes_;
    LVTimeLine* timeLine_ = nullptr;
    bool bRunning_ = false;
};

class LVTimeLineItemHolder {
public:
    LVTimeLineItemHolder() = default;
    explicit LVTimeLineItemHolder(const QString& name) { setName(name); }
    LVTimeLineItem* impl() const { return impl_.get(); }
    void setImpl(std::unique_ptr<LVTimeLineItem> impl);
    // The action's display name, or "Please select".
    QString name() const;
    // A fresh action by display name; an unknown name leaves the holder empty.
    void setName(const QString& name);
    // {"impl": action}, without "impl" when empty.
    QJsonObject encode() const;
    static std::unique_ptr<LVTimeLineItemHolder> decode(const QJsonObject& archived);

private:
    std::unique_ptr<LVTimeLineItem> impl_;
};
