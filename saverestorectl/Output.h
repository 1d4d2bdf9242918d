#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>

/// A piece of a line. What it says is made harmless when it is written.
struct Span
{
    enum class Style { Plain, Bold, Faint, Good, Doubtful, Bad };

    QString text;
    Style style = Style::Plain;
};

/// What the command prints: lines for a person, a status line that changes on a terminal, or JSON, one object
/// a line. Everything goes to standard output, but problems for a person to standard error.
class Output
{
public:
    static constexpr int formatVersion = 1;

    explicit Output(bool json);

    bool isJson() const { return json; }
    /// True when a line can be changed after it was written.
    bool canRedraw() const { return terminal; }
    bool hasUnicode() const { return unicode; }
    /// Columns of the terminal as it is now.
    int width() const;
    /// Nobody reads any more.
    bool isBroken() const { return broken; }

    /// A line for a person; nothing in JSON.
    void line(const QList<Span> &spans);
    void line(const QString &text) { line({Span{text}}); }
    /// Rows of cells as a table, the last cell of a row as long as it is.
    void table(const QList<QStringList> &rows);
    /// The line that stands below all others, in place of what it was.
    void status(const QString &text);
    /// There is no such line any more.
    void endStatus();
    /// An object with this type; nothing but in JSON.
    void object(const char *type, QJsonObject fields);
    /// Why something cannot be done.
    void problem(const QString &code, const QString &text, int exitStatus);

private:
    QByteArray styled(const Span &span, bool colour) const;
    void write(int descriptor, const QByteArray &bytes);

    bool json;
    bool terminal;
    bool colour;
    bool unicode;
    bool broken = false;
    bool statusShown = false;
};
