#pragma once

#include <QString>

/// Writes a program's messages to standard error, one line each: level, module, text.
///
/// Levels are the syslog severities. The configured level comes from the environment variable VYX_LOG_LEVEL
/// (default 6); a message is written when the configured level is at least its own. A line feed in a message
/// is shown as "\n". When standard error is systemd's journal, messages go to its own socket instead, as they
/// are and with the `LogFields` of the thread; where that fails, as lines that start with the level prefix
/// that the journal understands.
class VYXLogger
{
public:
    enum Level { Error = 3, Warning = 4, Info = 6, Debug = 7 };

    explicit VYXLogger(QString category);

    int getConfiguredLevel() const { return configuredLevel; }

    void debug(const QString &message) const { write(Debug, message); }
    void info(const QString &message) const { write(Info, message); }
    void warning(const QString &message) const { write(Warning, message); }
    void error(const QString &message) const { write(Error, message); }

private:
    void write(Level level, const QString &message) const;

    QString category;
    int configuredLevel;
    bool journal;
};

/// The process's logger of a category; the empty category is the default one, shown under the application's
/// name.
VYXLogger &logger(const QString &category);

namespace LogDetail {

inline QString text(const QString &value)
{
    return value;
}
inline QString text(const char *value)
{
    return QString::fromUtf8(value);
}
inline QString text(bool value)
{
    return QString::number(value ? 1 : 0);
}
template <typename Number> QString text(Number value)
{
    return QString::number(value);
}

template <typename... Values> QString fill(const char *format, const Values &...values)
{
    if constexpr (sizeof...(values) == 0) {
        return QString::fromUtf8(format);
    } else {
        return QString::fromUtf8(format).arg(text(values)...);
    }
}

} // namespace LogDetail

/// Write a message to the default logger. The numbered placeholders of the text are filled in one step, so a
/// value that holds "%1" stays as it is. The text is built only when the level is configured.
template <typename... Values> void logDebug(const char *format, const Values &...values)
{
    if (logger("").getConfiguredLevel() >= VYXLogger::Debug) {
        logger("").debug(LogDetail::fill(format, values...));
    }
}

template <typename... Values> void logInfo(const char *format, const Values &...values)
{
    if (logger("").getConfiguredLevel() >= VYXLogger::Info) {
        logger("").info(LogDetail::fill(format, values...));
    }
}

template <typename... Values> void logWarning(const char *format, const Values &...values)
{
    if (logger("").getConfiguredLevel() >= VYXLogger::Warning) {
        logger("").warning(LogDetail::fill(format, values...));
    }
}

template <typename... Values> void logError(const char *format, const Values &...values)
{
    if (logger("").getConfiguredLevel() >= VYXLogger::Error) {
        logger("").error(LogDetail::fill(format, values...));
    }
}
