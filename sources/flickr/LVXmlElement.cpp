#include "sources/flickr/LVXmlElement.h"

#include <QXmlStreamReader>

std::vector<const LVXmlElement*> LVXmlElement::elementsForName(const QString& childName) const
{
    std::vector<const LVXmlElement*> found;
    for (const LVXmlElement& child : children)
        if (child.name == childName) found.push_back(&child);
    return found;
}

const LVXmlElement* LVXmlElement::firstElementForName(const QString& childName) const
{
    for (const LVXmlElement& child : children)
        if (child.name == childName) return &child;
    return nullptr;
}

QString LVXmlElement::stringValue() const
{
    QString value = text;
    for (const LVXmlElement& child : children) value += child.stringValue();
    return value;
}

std::optional<LVXmlElement> LVXmlElement::parse(const QByteArray& bytes, QString* error)
{
    QXmlStreamReader reader(bytes);
    std::vector<LVXmlElement> open;
    std::optional<LVXmlElement> root;
    // Deeper nesting than any reply has is refused rather than followed.
    constexpr size_t kMaxDepth = 64;
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement: {
            if (open.size() >= kMaxDepth) {
                *error = QStringLiteral("elements nested deeper than %1").arg(kMaxDepth);
                return std::nullopt;
            }
            LVXmlElement element;
            element.name = reader.name().toString();
            for (const QXmlStreamAttribute& attribute : reader.attributes())
                element.attributes.insert(attribute.name().toString(), attribute.value().toString());
            open.push_back(std::move(element));
            break;
        }
        case QXmlStreamReader::EndElement: {
            LVXmlElement done = std::move(open.back());
            open.pop_back();
            if (open.empty())
                root = std::move(done);
            else
                open.back().children.push_back(std::move(done));
            break;
        }
        case QXmlStreamReader::Characters:
            if (!open.empty()) open.back().text += reader.text();
            break;
        default:
            break;
        }
    }
    if (reader.hasError()) {
        *error = QStringLiteral("%1 at line %2").arg(reader.errorString()).arg(reader.lineNumber());
        return std::nullopt;
    }
    if (!root) *error = QStringLiteral("no root element");
    return root;
}

std::optional<QString> getAttributeValue(const LVXmlElement* element, const QString& name)
{
    if (!element) return std::nullopt;
    const auto it = element->attributes.constFind(name);
    if (it == element->attributes.constEnd()) return std::nullopt;
    return *it;
}
