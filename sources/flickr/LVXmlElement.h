#pragma once
// A small element tree read with QXmlStreamReader: what the photo service's replies need
// (elements by name, attributes, string values), nothing more.
#include <QByteArray>
#include <QHash>
#include <QString>

#include <optional>
#include <vector>

struct LVXmlElement {
    QString name;
    QHash<QString, QString> attributes;
    QString text; // the concatenated character data directly inside
    std::vector<LVXmlElement> children;

    // Direct children with that name, in document order.
    std::vector<const LVXmlElement*> elementsForName(const QString& childName) const;
    const LVXmlElement* firstElementForName(const QString& childName) const;
    // Every text below this element, in order.
    QString stringValue() const;

    // The root element; none, with error, when the bytes are not well-formed XML.
    static std::optional<LVXmlElement> parse(const QByteArray& bytes, QString* error);
};

// The string value of a named attribute of an element, or none.
std::optional<QString> getAttributeValue(const LVXmlElement* element, const QString& name);
