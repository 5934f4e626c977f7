#include "bench/drive/timeline.h"

#include "bench/drive/words.h"

#include <algorithm>
#include <sys/resource.h>

namespace {

constexpr int64_t kUnfedUs = 2'500'000;     ///< feeds come each second
constexpr int64_t kRecordGapUs = 1'000'000; ///< between lines for angle and radar alone
constexpr int kSpeedLimit = 15;             ///< above it the picture is left

struct Line
{
    const char *number;
    const char *name;
};
const Line kLines[] = {
    {"229", "deserializer power-down"},
    {"260", "serializer power-down"},
    {"268", "GMSL link select"},
    {"106", "video source select"},
    {"150", "ACC keep-power"},
    {"116", "ACC"},
    {"269", "switch"},
    {"122", "deserializer lock"},
    {"270", "serializer lock"},
};

QString lineName(const QString &number)
{
    for (const Line &line : kLines) {
        if (number == QLatin1String(line.number))
            return QLatin1String(line.name);
    }
    return QStringLiteral("line");
}

QString fixed(double value, int digits)
{
    return QString::number(value, 'f', digits);
}

QString ratio(double value, double yardstick)
{
    return yardstick > 0 ? fixed(value / yardstick, 1) : QStringLiteral("?");
}

double secondsOf(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

} // namespace

Timeline::Timeline(QTextStream &out, double speed, bool isColoured)
    : mOut(out),
      mSpeed(speed),
      mIsColoured(isColoured),
      mPicture(QStringLiteral("PVM")),
      mRecordPrintedUs(-kRecordGapUs)
{}

void Timeline::note(int64_t us, const QString &what, const QString &text, bool isBad)
{
    printRecord(us);
    const QString time =
        us < 0 ? QStringLiteral("boot") : fixed(static_cast<double>(us) / 1e6 * mSpeed, 3);
    const QString line = QStringLiteral("%1  %2 %3 %4")
                             .arg(time, 9)
                             .arg(what, -9)
                             .arg(printable(text), -64)
                             .arg(mPicture);
    if (isBad && mIsColoured)
        mOut << "\033[31m" << line << "\033[0m\n";
    else
        mOut << line << '\n';
    mOut.flush();
}

void Timeline::take(const Fact &fact, int64_t us)
{
    const QString span = mTickCounts.take(fact, us);
    switch (fact.kind) {
    case Fact::Kind::Command:
        takeCommand(fact.subject, span, us);
        break;
    case Fact::Kind::Picture:
        takePicture(fact.value, us);
        break;
    case Fact::Kind::Gpio:
        note(us, QStringLiteral("gpio"),
             QStringLiteral("%1 (%2) = %3%4")
                 .arg(lineName(fact.subject), fact.subject, fact.value, span));
        break;
    case Fact::Kind::Watchdog:
        takeWatchdog(fact.value, us);
        break;
    case Fact::Kind::Record:
        takeRecord(fact.subject, fact.value, us);
        break;
    case Fact::Kind::Bus:
        note(us, QStringLiteral("bus"), fact.value);
        break;
    case Fact::Kind::Renderer:
        note(us, QStringLiteral("renderer"), fact.value);
        break;
    case Fact::Kind::Power:
        mIsWatchdogOpen = false;
        note(us, QStringLiteral("board"),
             fact.subject.isEmpty()
                 ? QStringLiteral("power %1").arg(fact.value)
                 : QStringLiteral("power %1 (%2)").arg(fact.value, fact.subject));
        if (fact.value == QLatin1String("on"))
            takePicture(QStringLiteral("PVM"), us);
        break;
    case Fact::Kind::Input:
        note(us, QStringLiteral("input"), fact.subject + QLatin1Char(' ') + fact.value);
        break;
    case Fact::Kind::Log:
        if (!span.isEmpty())
            note(us, QStringLiteral("log"), fact.subject + span);
        break;
    }
}

void Timeline::advance(int64_t us)
{
    if (!mIsRecordDue && !mFields.isEmpty() && us - mRecordPrintedUs >= kRecordGapUs) {
        mIsRecordDue = true;
        mFieldsSinceUs = us;
    }
    printRecord(us);
    if (mIsWatchdogOpen && mIsFed && us >= 0 && us - mFedUs >= kUnfedUs) {
        mIsFed = false;
        note(us, QStringLiteral("watchdog"), QStringLiteral("no longer fed"));
    }
}

void Timeline::takeCommand(const QString &command, const QString &span, int64_t us)
{
    if (us >= 0)
        ++mCommands;
    QString what = QStringLiteral("command");
    if (command.startsWith(QLatin1String("date ")))
        what = QStringLiteral("clock");
    else if (command.startsWith(QLatin1String("/etc/")))
        what = QStringLiteral("script");
    note(us, what, command + span);
}

void Timeline::takePicture(const QString &picture, int64_t us)
{
    if (picture == mPicture)
        return;
    countPicture(us);
    mPicture = picture;
    if (us >= 0)
        ++mSwitches;
    note(us, QStringLiteral("picture"), QStringLiteral("is now ") + picture);
}

void Timeline::countPicture(int64_t us)
{
    const int64_t now = std::max<int64_t>(us, 0);
    mShownUs[mPicture] += now - mPictureSinceUs;
    mPictureSinceUs = now;
}

void Timeline::takeWatchdog(const QString &value, int64_t us)
{
    if (value != QLatin1String("fed")) {
        mIsWatchdogOpen = value == QLatin1String("opened");
        mIsFed = false;
        note(us, QStringLiteral("watchdog"), value);
        return;
    }
    mFedUs = us;
    if (!mIsFed)
        note(us, QStringLiteral("watchdog"), QStringLiteral("fed"));
    mIsFed = true;
}

void Timeline::takeRecord(const QString &field, const QString &value, int64_t us)
{
    if (field == QLatin1String("speed")) {
        const int speed = value.toInt();
        const bool isCrossing =
            mLastSpeed < 0 || (speed > kSpeedLimit) != (mLastSpeed > kSpeedLimit);
        mLastSpeed = speed;
        if (!isCrossing)
            return;
    }
    const bool isSpeed = field == QLatin1String("speed");
    mFields[field] = !isSpeed                   ? value
                     : mLastSpeed > kSpeedLimit ? value + QStringLiteral(" (above the limit)")
                                                : value + QStringLiteral(" (within the limit)");
    if (mIsRecordDue || field == QLatin1String("angle") || field == QLatin1String("radar"))
        return;
    mIsRecordDue = true;
    mFieldsSinceUs = us;
}

void Timeline::printRecord(int64_t us)
{
    if (!mIsRecordDue)
        return;
    QStringList texts;
    for (auto field = mFields.cbegin(); field != mFields.cend(); ++field)
        texts << field.key() + QLatin1Char(' ') + field.value();
    mIsRecordDue = false;
    mFields.clear();
    mRecordPrintedUs = us;
    note(mFieldsSinceUs, QStringLiteral("record"), texts.join(QStringLiteral(", ")));
}

void Timeline::figure(const QString &name, const QString &value)
{
    mOut << QStringLiteral("  %1 %2\n").arg(name, -22).arg(value);
}

QString Timeline::shareOf(const QString &picture) const
{
    const auto all = std::max<int64_t>(mPictureSinceUs, 1);
    const auto shown = static_cast<double>(mShownUs.value(picture));
    return QStringLiteral("%1 %2 s (%3 %)")
        .arg(picture, fixed(shown / 1e6 * mSpeed, 1),
             fixed(100 * shown / static_cast<double>(all), 0));
}

void Timeline::summarise(const Totals &totals)
{
    advance(totals.endUs);
    countPicture(totals.endUs);
    const Board::Figures &figures = totals.figures;
    const double played = static_cast<double>(std::max<int64_t>(totals.endUs, 1)) / 1e6;
    mOut << '\n';
    figure(
        QStringLiteral("frames"),
        QStringLiteral("%1 in the log (%2 error frames), %3 sent, %4 received, %5 lost, %6 skipped")
            .arg(totals.framesInLog)
            .arg(totals.errorFrames)
            .arg(figures.framesSent)
            .arg(figures.framesReceived)
            .arg(figures.framesLost)
            .arg(totals.framesSkipped));
    figure(QStringLiteral("worst lateness"),
           fixed(static_cast<double>(totals.worstLatenessUs) / 1e3, 1) + QStringLiteral(" ms"));
    figure(QStringLiteral("pictures"),
           shareOf(QStringLiteral("PVM")) + QStringLiteral(", ") + shareOf(QStringLiteral("DA")));
    figure(QStringLiteral("switches"), QString::number(mSwitches));
    figure(QStringLiteral("commands run"), QString::number(mCommands));
    figure(QStringLiteral("watchdog feeds"), QString::number(figures.watchdogFeeds));
    // Machines differ: what the bench itself took for the same drive is the yardstick.
    rusage bench = {};
    getrusage(RUSAGE_SELF, &bench);
    if (figures.peakMemoryKiB >= 0)
        figure(QStringLiteral("controller's memory"),
               QStringLiteral("%1 MiB at most, %2 times the bench's")
                   .arg(fixed(static_cast<double>(figures.peakMemoryKiB) / 1024, 1),
                        ratio(static_cast<double>(figures.peakMemoryKiB),
                              static_cast<double>(bench.ru_maxrss))));
    if (figures.cpuSeconds >= 0)
        figure(QStringLiteral("controller's CPU time"),
               QStringLiteral("%1 s (%2 % of the %3 s played), %4 times the bench's")
                   .arg(fixed(figures.cpuSeconds, 2), fixed(100 * figures.cpuSeconds / played, 1),
                        fixed(played, 1),
                        ratio(figures.cpuSeconds,
                              secondsOf(bench.ru_utime) + secondsOf(bench.ru_stime))));
    QString expectations = QStringLiteral("%1 held, %2 failed").arg(totals.held).arg(totals.failed);
    if (totals.notReached)
        expectations += QStringLiteral(", %1 not reached").arg(totals.notReached);
    figure(QStringLiteral("expectations"), expectations);
    mOut.flush();
}
