// SPDX-License-Identifier: MIT
#pragma once

#include <QJsonObject>
#include <QObject>
#include <QVector>

#include <memory>

namespace morvellacinto::bench {

class QtStop : public QObject {
    Q_OBJECT
    Q_PROPERTY(qlonglong ident MEMBER ident)
    Q_PROPERTY(QString name MEMBER name)
    Q_PROPERTY(QString code MEMBER code)
    Q_PROPERTY(QString address MEMBER address)
    Q_PROPERTY(double latitude MEMBER latitude)
    Q_PROPERTY(double longitude MEMBER longitude)
    Q_PROPERTY(double elevation MEMBER elevation)
    Q_PROPERTY(int platforms MEMBER platforms)
    Q_PROPERTY(qlonglong passengers MEMBER passengers)
    Q_PROPERTY(bool staffed MEMBER staffed)

public:
    qlonglong ident = 0;
    QString name;
    QString code;
    QString address;
    double latitude = 0;
    double longitude = 0;
    double elevation = 0;
    int platforms = 0;
    qlonglong passengers = 0;
    bool staffed = false;
};

class QtLine : public QObject {
    Q_OBJECT
    Q_PROPERTY(qlonglong ident MEMBER ident)
    Q_PROPERTY(QString name MEMBER name)
    Q_PROPERTY(QString number MEMBER number)
    Q_PROPERTY(QString company MEMBER company)
    Q_PROPERTY(double length MEMBER length)
    Q_PROPERTY(double fare MEMBER fare)
    Q_PROPERTY(double delay MEMBER delay)
    Q_PROPERTY(int journeys MEMBER journeys)
    Q_PROPERTY(qlonglong passengers MEMBER passengers)
    Q_PROPERTY(bool nightly MEMBER nightly)
    Q_PROPERTY(QVector<QObject*> stops MEMBER stops)

public:
    qlonglong ident = 0;
    QString name;
    QString number;
    QString company;
    double length = 0;
    double fare = 0;
    double delay = 0;
    int journeys = 0;
    qlonglong passengers = 0;
    bool nightly = false;
    /// Children of this object.
    QVector<QObject*> stops;
};

/// A line filled through `setProperty`, and read back through `property`.
[[nodiscard]] std::unique_ptr<QtLine> lineFromJson(const QJsonObject& json);
[[nodiscard]] QJsonObject jsonFromLine(const QtLine& line);

} // namespace morvellacinto::bench
