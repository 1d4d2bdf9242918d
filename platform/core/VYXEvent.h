#pragma once

#include <QMetaType>
#include <QString>
#include <QVariantMap>

/// An event that one module publishes and any module may hear: a name, named arguments and a text.
class VYXEvent
{
public:
    VYXEvent() = default;
    explicit VYXEvent(QString name, QVariantMap arguments = {}, QString text = {});

    QString getName() const { return name; }
    QString getText() const { return text; }
    QVariantMap getArguments() const { return arguments; }

    /// The value of an argument; an invalid QVariant when the event has none of that name.
    QVariant getArgument(const QString &key) const { return arguments.value(key); }

    /// Add an argument. One that exists already is kept unless `replace` is true.
    void addArgument(const QVariant &value, const QString &key, bool replace);

private:
    QString name;
    QVariantMap arguments;
    QString text;
};

Q_DECLARE_METATYPE(VYXEvent)
