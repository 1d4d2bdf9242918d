#include "saverestorectl/ProgressDisplay.h"

#include "saverestorectl/Output.h"
#include "saverestorectl/ServiceConnection.h"
#include "saverestorectl/Text.h"

#include <QStringList>

#include <algorithm>
#include <chrono>
#include <cmath>

using namespace std::chrono_literals;

namespace {

constexpr double tenth = 0.1;
constexpr int widestBar = 40;
constexpr int narrowestBar = 8;

QString percent(double progress)
{
    return QString("%1 %").arg(static_cast<int>(progress * 100), 3);
}

} // namespace

ProgressDisplay::ProgressDisplay(const ServiceConnection &service, Output &output)
    : service(service), output(output)
{
    QObject::connect(&everySecond, &QTimer::timeout, &everySecond, [this] { redraw(); });
}

void ProgressDisplay::update()
{
    if (service.job() != job || !sinceBegin.isValid()) {
        end();
        job = service.job();
        sinceBegin.start();
        progressAtBegin = service.progress();
    }
    if (!output.canRedraw()) {
        printChange();
        return;
    }
    if (!everySecond.isActive()) {
        everySecond.start(1s);
    }
    drawBar();
}

void ProgressDisplay::redraw()
{
    if (everySecond.isActive()) {
        drawBar();
    }
}

void ProgressDisplay::end()
{
    everySecond.stop();
    sinceBegin.invalidate();
    shownStage.clear();
    stageOfBytes.clear();
    shownProgress = -1;
}

QString ProgressDisplay::stage() const
{
    return service.phase().isEmpty() ? service.operation() : service.operation() + ": " + service.phase();
}

void ProgressDisplay::printChange()
{
    const double progress = service.progress();
    const QString now = stage() + "\n" + service.module();
    const double step = output.isJson() ? 0 : tenth;
    if (now == shownStage && (progress <= shownProgress || progress < shownProgress + step)) {
        return;
    }
    shownStage = now;
    shownProgress = progress;
    output.object("progress", {{"job", static_cast<qint64>(service.job())},
                               {"operation", service.operation()},
                               {"phase", service.phase()},
                               {"progress", progress},
                               {"bytesDone", static_cast<qint64>(service.phaseBytesDone())},
                               {"bytes", static_cast<qint64>(service.phaseBytes())},
                               {"module", service.module()}});
    output.line(QString("%1 %2 %3").arg(percent(progress), stage(), service.module()).trimmed());
}

/// As the pace so far has it; empty as long as that says little.
QString ProgressDisplay::timeLeft() const
{
    constexpr double least = 0.02;
    constexpr double settled = 2;
    const double gone = static_cast<double>(sinceBegin.elapsed()) / 1000;
    const double done = service.progress() - progressAtBegin;
    if (done < least || gone < settled || service.progress() >= 1) {
        return {};
    }
    return Text::duration(gone * (1 - service.progress()) / done) + " left";
}

/// Of the phase, since it was seen first; empty for less than a second.
QString ProgressDisplay::rate()
{
    constexpr double least = 1;
    if (stage() != stageOfBytes) {
        stageOfBytes = stage();
        bytesAtBegin = service.phaseBytesDone();
        sinceBytes.start();
    }
    const double gone = static_cast<double>(sinceBytes.elapsed()) / 1000;
    const quint64 now = service.phaseBytesDone();
    return gone < least || now <= bytesAtBegin
               ? QString()
               : Text::bytes(static_cast<quint64>(static_cast<double>(now - bytesAtBegin) / gone)) + "/s";
}

QString ProgressDisplay::bar(int width) const
{
    const int filled = static_cast<int>(std::floor(service.progress() * width));
    return output.hasUnicode() ? QString(filled, QChar(0x2588)) + QString(width - filled, QChar(0x2591))
                               : "[" + QString(filled, '#') + QString(width - filled, '.') + "]";
}

/// The last column stays free: some terminals begin a new line behind it.
void ProgressDisplay::drawBar()
{
    const int width = output.width() - 1;
    const QString elapsed = Text::duration(static_cast<double>(sinceBegin.elapsed()) / 1000);
    QStringList parts = {percent(service.progress()),      stage(), elapsed, timeLeft(), rate(),
                         Text::printable(service.module())};
    parts.removeAll(QString());
    const QString text = parts.join("  ");
    const int left = std::min(width - Text::columns(text) - 4, widestBar);
    const QString line = left >= narrowestBar ? bar(left) + "  " + text : text;
    output.status(Text::shortened(line, width));
}
