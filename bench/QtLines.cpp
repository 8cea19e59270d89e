// SPDX-License-Identifier: MIT
#include "QtLines.h"

#include <QJsonArray>
#include <QMetaProperty>
#include <QVariant>

namespace morvellacinto::bench {
namespace {

void fill(QObject& object, const QJsonObject& json) {
    for (auto member = json.begin(); member != json.end(); ++member) {
        const QByteArray name = member.key().toUtf8();
        if (!member->isArray()) {
            object.setProperty(name, member->toVariant());
            continue;
        }
        QVector<QObject*> children;
        const QJsonArray elements = member->toArray();
        children.reserve(elements.size());
        for (const QJsonValue& element : elements) {
            auto* child = new QtStop;
            child->setParent(&object);
            fill(*child, element.toObject());
            children.append(child);
        }
        object.setProperty(name, QVariant::fromValue(children));
    }
}

QJsonObject exported(const QObject& object) {
    QJsonObject json;
    const QMetaObject& described = *object.metaObject();
    for (int index = described.propertyOffset(); index < described.propertyCount(); ++index) {
        const QMetaProperty property = described.property(index);
        const QVariant value = property.read(&object);
        if (value.userType() != qMetaTypeId<QVector<QObject*>>()) {
            json.insert(QLatin1String(property.name()), QJsonValue::fromVariant(value));
            continue;
        }
        QJsonArray elements;
        for (const QObject* child : value.value<QVector<QObject*>>()) {
            elements.append(exported(*child));
        }
        json.insert(QLatin1String(property.name()), elements);
    }
    return json;
}

} // namespace

std::unique_ptr<QtLine> lineFromJson(const QJsonObject& json) {
    auto line = std::make_unique<QtLine>();
    fill(*line, json);
    return line;
}

QJsonObject jsonFromLine(const QtLine& line) { return exported(line); }

} // namespace morvellacinto::bench
