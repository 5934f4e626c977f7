// SPDX-License-Identifier: MIT

#include "bench/incident/capture.h"

#include "bench/board/printable.h"
#include "bench/car/vehicle.h"
#include "bench/drive/driveclock.h"
#include "bench/incident/leadin.h"
#include "bench/incident/recollection.h"
#include "bench/incident/teller.h"
#include "bench/language/candump.h"
#include "bench/language/seconds.h"
#include "bench/language/words.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <cstdio>
#include <linux/can.h>
#include <unistd.h>

namespace {

constexpr int64_t kDayUs = int64_t{86400} * 1'000'000;
constexpr int64_t kStartUs = 1'000'000; ///< within it a start is the part's begin
constexpr int64_t kSettledUs = 50'000;  ///< until why is told
constexpr int64_t kEndUs =
    500'000; ///< behind the journal's last line, which may come later on a desk
constexpr uint32_t kClock = 0x371;
constexpr char kRequest[] = "toSwitchVideo  isToPVM";

/// What the controller gave as reasons at a moment of the drive.
struct Reason
{
    int64_t us;
    QString because;
    QString unmet;
};

class Capture
{
public:
    Capture(Journal journal, std::vector<BusFrame> frames, const CaptureOptions &options)
        : mJournal(std::move(journal)), mFrames(std::move(frames)), mOptions(options)
    {
        mPart = partOf();
        mSeen = recollect(mJournal, mFrames, mPart);
        if (!mOptions.isWithoutClock && !mJournal.stretches.empty()) {
            mWallUs = wallUs(mPart.zeroUs);
            mHead << "Drive time 0 is " + wallText(mWallUs) + '.';
        }
        toDriveTime();
        mReasons = reasons();
    }

    QString fault() const
    {
        return mSeen.endUs > kDayUs
                   ? "a drive lasts a day at most; --from and --to or --around take a part"
                   : QString();
    }

    void write(QTextStream &out)
    {
        LeadIn lead;
        if (!mPart.isFromStart)
            lead = leadIn(startState());
        std::vector<DriveLine> lines = mSeen.inputs;
        lines.insert(lines.end(), lead.board.begin(), lead.board.end());
        if (mFrames.empty())
            lines.insert(lines.end(), lead.car.begin(), lead.car.end());
        lines.insert(lines.end(), mSeen.events.begin(), mSeen.events.end());
        std::vector<Request> requests = lead.requests;
        requests.insert(requests.end(), mSeen.requests.begin(), mSeen.requests.end());
        expect(requests, &lines);
        std::stable_sort(lines.begin(), lines.end(),
                         [](const DriveLine &a, const DriveLine &b) { return a.us < b.us; });
        writeHead(out, lead);
        for (const DriveLine &line : lines) {
            if (mOptions.isWithoutClock && line.words.startsWith("frame 371#"))
                continue;
            out << "at " << DriveClock::seconds(std::clamp<int64_t>(line.us, 0, mSeen.endUs)) << ' '
                << line.words;
            if (!line.comment.isEmpty())
                out << "  # " << printable(line.comment);
            out << '\n';
        }
        out << "at " << DriveClock::seconds(mSeen.endUs) << " end\n";
        if (!mFrames.empty())
            writeFrames(out, lead);
    }

private:
    /// The part that is asked for, from the start of the controller if it begins with one.
    Part partOf() const
    {
        const auto &lines = mJournal.lines;
        const int64_t toUs = std::min(mOptions.toUs, lines.back().us + kEndUs);
        size_t start = lines.size();
        for (size_t i = 0; i < lines.size() && start == lines.size(); ++i)
            if (lines[i].us >= mOptions.fromUs && lines[i].text.startsWith("PvmMain ") &&
                lines[i].us - mOptions.fromUs <= kStartUs)
                start = i;
        if (start == lines.size())
            return {mOptions.fromUs, toUs, mOptions.fromUs - LeadIn::kUs, false};
        for (size_t i = start; i < lines.size() && lines[i].us - lines[start].us < 10 * kStartUs;
             ++i)
            if (lines[i].text.startsWith("CAN 0  Open OK"))
                return {lines[start].us, toUs, lines[i].us, true};
        return {lines[start].us, toUs, lines[start].us, true};
    }

    int64_t wallUs(int64_t us) const
    {
        int64_t offsetUs = 0;
        for (const ClockStretch &stretch : mJournal.stretches)
            if (stretch.firstUs <= us || &stretch == &mJournal.stretches.front())
                offsetUs = stretch.offsetUs;
        return us + offsetUs;
    }

    /// All that is known, from the journal's time to the drive's.
    void toDriveTime()
    {
        const int64_t zeroUs = mPart.zeroUs;
        for (JournalLine &line : mJournal.lines)
            line.us -= zeroUs;
        for (BusFrame &frame : mFrames)
            frame.stampUs -= zeroUs;
        for (DriveLine &line : mSeen.inputs)
            line.us -= zeroUs;
        for (DriveLine &line : mSeen.events)
            line.us -= zeroUs;
        for (Request &request : mSeen.requests)
            request.us -= zeroUs;
        for (auto &[from, to] : mSeen.silences) {
            from -= zeroUs;
            to -= zeroUs;
        }
        mSeen.endUs -= zeroUs;
        mPart.fromUs -= zeroUs;
    }

    std::vector<Reason> reasons() const
    {
        QString nowhere;
        QTextStream out(&nowhere);
        Teller teller(mJournal, mFrames, out, {}, nullptr);
        teller.tell(std::numeric_limits<int64_t>::min(), mSeen.endUs);
        std::vector<Reason> reasons;
        for (const QByteArray &line : teller.facts().kept().split('\n')) {
            if (!line.contains("\"kind\":\"why\""))
                continue;
            const QJsonObject fact = QJsonDocument::fromJson(line).object();
            reasons.push_back({static_cast<int64_t>(fact["t"].toDouble(-1) * 1e6),
                               fact["value"].toString(), fact["unmet"].toString()});
        }
        return reasons;
    }

    QString reasonAt(int64_t us) const
    {
        const auto behind = std::upper_bound(
            mReasons.begin(), mReasons.end(), us + kSettledUs,
            [](int64_t moment, const Reason &reason) { return moment < reason.us; });
        if (behind == mReasons.begin())
            return {};
        const Reason &reason = *(behind - 1);
        return reason.because +
               (reason.unmet.isEmpty() ? QString() : "; the other not: " + reason.unmet);
    }

    /// What the journal leaves open, the frames around the part's begin tell.
    CarState startState() const
    {
        CarState state = mSeen.start;
        QMap<QString, QString> levels;
        QSet<QString> heard;
        for (const BusFrame &frame : mFrames) {
            const bool isEarly = frame.stampUs <= mPart.fromUs;
            for (const vehicle::Reading &reading : vehicle::readings(frame)) {
                const bool isRadar = reading.subject.startsWith("radar ");
                QString &value =
                    isRadar ? levels[reading.subject.mid(6)] : state.car[reading.subject];
                if (isEarly || !heard.contains(reading.subject))
                    value = reading.value;
                heard.insert(reading.subject);
            }
        }
        if (levels.size() == 6) {
            QString radar;
            for (const QString &level : levels)
                radar.prepend(level);
            state.car["radar"] = radar;
        }
        return state;
    }

    /// Each request in its order and within its time, and none between.
    void expect(const std::vector<Request> &requests, std::vector<DriveLine> *lines) const
    {
        int64_t askedUs = 0;
        int64_t dueUs = 0;
        for (const Request &request : requests) {
            const int64_t us = std::max({askedUs, request.us - request.toleranceUs, int64_t{0}});
            if (us > dueUs)
                lines->push_back(noneBetween(dueUs, us));
            askedUs = us;
            const int64_t lastUs = request.us + request.toleranceUs;
            dueUs = std::max(dueUs, lastUs);
            const QString within = " within " + DriveClock::seconds(lastUs - us);
            const QString why = whyOf(request);
            if (request.isChange)
                lines->push_back({us,
                                  QStringLiteral("expect picture %1 within %2")
                                      .arg(request.value == "1" ? "PVM" : "DA",
                                           DriveClock::seconds(lastUs - us + request.scriptUs)),
                                  why});
            lines->push_back(
                {us, QStringLiteral("expect log \"%1  %2\"").arg(kRequest, request.value) + within,
                 why});
            if (request.isRefused)
                lines->push_back({us, "expect log \"isCanOutFromPVM  false\"" + within, why});
        }
        if (mSeen.endUs > dueUs)
            lines->push_back(noneBetween(dueUs, mSeen.endUs));
    }

    QString whyOf(const Request &request) const
    {
        if (request.us < mPart.fromUs)
            return "to begin with";
        const bool isNews = request.isChange || request.isRefused;
        return (isNews ? "in the car: " : "there before in the car: ") + reasonAt(request.us);
    }

    static DriveLine noneBetween(int64_t fromUs, int64_t toUs)
    {
        return {fromUs, QStringLiteral("expect no log \"%1\" for %2")
                            .arg(kRequest, DriveClock::seconds(toUs - fromUs))};
    }

    void writeHead(QTextStream &out, const LeadIn &lead) const
    {
        QStringList head{
            "Captured by pvm-bench " + QCoreApplication::applicationVersion() +
            (mOptions.isWithoutClock
                 ? QString()
                 : " from " + QFileInfo(mOptions.journal).fileName() +
                       (mOptions.can.isEmpty() ? QString()
                                               : " and " + QFileInfo(mOptions.can).fileName())) +
            '.'};
        head += mHead;
        if (!mPart.isFromStart)
            head << QStringLiteral("It begins at %1; what is in front brings a fresh board there.")
                        .arg(DriveClock::seconds(LeadIn::kUs));
        if (mFrames.empty())
            head << "Without a log of the bus the car is what the controller said of it: no wheel, "
                    "no"
                 << "speed but where it decided something, no gear that was not taken, no other "
                    "talk.";
        head << "Nobody tells presses of the switch that were too short, how long a click was, and"
             << "what became of a script.";
        head += lead.remarks + mSeen.remarks;
        for (const QString &line : head)
            out << "# " << printable(line) << '\n';
        out << "\nat 0 pace 1 to 1\n";
        for (const QString &words : mSeen.forAll)
            out << "at 0 " << words << '\n';
    }

    void writeFrames(QTextStream &out, const LeadIn &lead) const
    {
        std::vector<BusFrame> frames = framesOf(lead);
        for (BusFrame &frame : frames)
            frame.stampUs -= vehicle::kStartUs;
        const int64_t fromUs = frames.empty() ? 0 : mPart.fromUs;
        for (const BusFrame &frame : mFrames)
            if (frame.stampUs >= std::max<int64_t>(fromUs, 0) && frame.stampUs <= mSeen.endUs &&
                !isUnheard(frame))
                frames.push_back(frame);
        if (frames.empty() || frames.front().stampUs > 0) {
            out << "\n# Nobody's frame, at drive time 0.\n"
                << candumpLine({mWallUs, 0x7FF, 0, {}}, "can0");
        }
        for (BusFrame &frame : frames) {
            frame.stampUs += mWallUs;
            out << candumpLine(frame, "can0");
        }
    }

    bool isUnheard(const BusFrame &frame) const
    {
        if (mOptions.isWithoutClock && (frame.id & (CAN_EFF_MASK | CAN_ERR_FLAG)) == kClock)
            return true;
        return std::any_of(mSeen.silences.begin(), mSeen.silences.end(), [&](const auto &silence) {
            return frame.stampUs >= silence.first && frame.stampUs < silence.second;
        });
    }

    /// Those that a car of its words sends until the part begins.
    static std::vector<BusFrame> framesOf(const LeadIn &lead)
    {
        if (lead.car.empty())
            return {};
        std::vector<DriveLine> lines = lead.car;
        lines.push_back({LeadIn::kUs, "end"});
        std::stable_sort(lines.begin(), lines.end(),
                         [](const DriveLine &a, const DriveLine &b) { return a.us < b.us; });
        std::vector<Statement> statements;
        for (const DriveLine &line : lines) {
            Statement statement;
            statement.atUs = line.us;
            parseWords(line.words, &statement);
            statements.push_back(statement);
        }
        return vehicle::frames(statements);
    }

    Journal mJournal;
    std::vector<BusFrame> mFrames;
    const CaptureOptions mOptions;
    Part mPart{};
    Recollection mSeen;
    std::vector<Reason> mReasons;        ///< in order
    int64_t mWallUs = vehicle::kStartUs; ///< of drive time 0, or any
    QStringList mHead;
};

QString usageFault(const QCommandLineParser &parser)
{
    const int behind = parser.isSet("around") ? 1 : 0;
    if (parser.positionalArguments().size() > behind || !parser.isSet("journal"))
        return "capture takes --journal FILE, and perhaps --can LOG";
    if (parser.isSet("around") && (parser.isSet("from") || parser.isSet("to")))
        return "--around is instead of --from and --to";
    return {};
}

/// The part that is asked for, in the journal's times.
QString readPart(const QCommandLineParser &parser, const Journal &journal, CaptureOptions *options)
{
    QString fault;
    if (parser.isSet("around")) {
        const QString length = parser.positionalArguments().value(0, "30");
        int64_t us = 0, lengthUs = 0;
        fault = readMoment(parser.value("around"), journal, &us);
        if (fault.isEmpty() && (!parseSeconds(length, &lengthUs) || lengthUs == 0))
            fault = QStringLiteral("'%1' is not a number of seconds, such as 30").arg(length);
        options->fromUs = std::max<int64_t>(us - lengthUs / 2, 0);
        options->toUs = us + lengthUs / 2;
    }
    if (fault.isEmpty() && parser.isSet("from"))
        fault = readMoment(parser.value("from"), journal, &options->fromUs);
    if (fault.isEmpty() && parser.isSet("to"))
        fault = readMoment(parser.value("to"), journal, &options->toUs);
    if (!fault.isEmpty())
        return fault;
    const int64_t endUs = journal.lines.back().us;
    return options->fromUs > endUs || options->toUs <= options->fromUs
               ? QStringLiteral("nothing of the journal lies there; it lasts %1 s")
                     .arg(DriveClock::seconds(endUs))
               : QString();
}

int complain(int code, const QString &text)
{
    fprintf(stderr, "pvm-bench: %s\n", qPrintable(printable(text, 1000)));
    return code;
}

} // namespace

int capture(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "capture --journal FILE: writes a drive that repeats what happened in a car.");
    parser.addOptions(
        {{"journal", "The controller's journal, or the bench's --log.", "FILE"},
         {"can", "A log of the bus, as candump -L writes it.", "LOG"},
         {"channel", "The channel of that log.", "NAME", "can0"},
         {"from", "Leaves out what is before: 14:03:20 (UTC), or seconds.", "TIME"},
         {"to", "Leaves out what comes behind.", "TIME"},
         {"around", "Takes 30 seconds around it, or as many as are told behind.", "TIME [SECONDS]"},
         {"without-clock", "Leaves the date out."}});
    const QCommandLineOption help = parser.addHelpOption();
    if (!parser.parse(QStringList{"pvm-bench"} + arguments))
        return complain(2, parser.errorText().remove(QRegularExpression("\\.$")) +
                               "; see pvm-bench --help");
    if (parser.isSet(help))
        parser.showHelp();
    QString fault = usageFault(parser);
    if (!fault.isEmpty())
        return complain(2, fault + "; see pvm-bench --help");
    CaptureOptions options{parser.value("journal"), parser.value("can"), parser.value("channel")};
    options.isWithoutClock = parser.isSet("without-clock");
    Journal journal;
    std::vector<BusFrame> frames;
    fault = readJournal(options.journal, &journal);
    if (fault.isEmpty() && !options.can.isEmpty())
        fault = readFrames(options.can, options.channel, &journal, &frames);
    if (fault.isEmpty())
        fault = readPart(parser, journal, &options);
    if (!fault.isEmpty())
        return complain(2, fault);
    for (const QString &remark : journal.remarks)
        complain(0, remark);
    QFile output;
    output.open(STDOUT_FILENO, QIODevice::WriteOnly);
    QTextStream out(&output);
    fault = writeDrive(std::move(journal), std::move(frames), options, out);
    if (!fault.isEmpty())
        return complain(2, fault);
    out.flush();
    if (!output.flush() || output.error() != QFileDevice::NoError)
        return complain(4, "standard output: " + output.errorString());
    return 0;
}

QString writeDrive(Journal journal, std::vector<BusFrame> frames, const CaptureOptions &options,
                   QTextStream &out)
{
    Capture captured(std::move(journal), std::move(frames), options);
    if (captured.fault().isEmpty())
        captured.write(out);
    return captured.fault();
}
