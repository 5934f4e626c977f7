// SPDX-License-Identifier: MIT

#include "bench/language/words.h"

#include "bench/board/boardlines.h"
#include "bench/board/printable.h"
#include "bench/language/candump.h"
#include "bench/language/hints.h"
#include "bench/language/seconds.h"

#include <QDate>
#include <QRegularExpression>
#include <QVector>

#include <algorithm>

namespace {

using Kind = Fact::Kind;
constexpr Kind kNoKind{}; ///< of what is no expectation

struct Row
{
    Verb verb;
    Kind kind;
    const char *pattern;
    const char *meaning;
};

// In a pattern, a|b is a choice of words, [x] may be left out, [x | y] allows one of both or
// neither, and capitals stand for a value. What is chosen or given becomes the statement's subject
// and value, in this order, and so does a word in <>.
const Row kRows[] = {
    {Verb::SetGear, kNoKind, "gear P|R|N|D|undefined", "the lever; P at first"},
    {Verb::SetLight, kNoKind, "light OFF|LEFT|RIGHT", "the turn light; OFF at first"},
    {Verb::SetKey, kNoKind, "key OFF|1|ON", "the ignition key; ON at first"},
    {Verb::SetSpeed, kNoKind, "speed SPEED [over SECONDS]",
     "0 to 255, 0 at first; at once, or in a straight line that ends there"},
    {Verb::SetAngle, kNoKind, "angle ANGLE [over SECONDS]",
     "the steering wheel as the renderer gets it, -2838 to 2838, 0 at first; further turned it is "
     "cut there"},
    {Verb::SetRadar, kNoKind, "radar LEVELS",
     "six digits, sensor 5 first, 0 nothing to 3 near; 000000 at first"},
    {Verb::SetClock, kNoKind, "clock DATE TIME",
     "local, such as 2023-11-16 20:34; from then on it is sent and goes on"},
    {Verb::SetLoad, kNoKind, "bus load PERCENT",
     "other talk fills the bus up to this share of 500 kbit/s; none at first"},
    {Verb::SetAwake, kNoKind, "bus asleep|awake", "whether anybody sends; awake at first"},
    {Verb::SendFrame, kNoKind, "frame FRAME [every SECONDS for SECONDS]",
     "a frame as candump -L writes it, such as 413#0102; 8 digits with bit 29 set, an error frame"},
    {Verb::StartRenderer, kNoKind, "renderer start",
     "starts the renderer, which runs from power-on unless this is a drive's first word to it"},
    {Verb::KillRenderer, kNoKind, "renderer kill", "kills it (SIGKILL)"},
    {Verb::HoldLink, kNoKind, "renderer holds|lets-go",
     "it keeps the link's semaphore and lock, as one that is stopped within an exchange does"},
    {Verb::SetRendererFlag, kNoKind, "renderer heartbeat|turn-switch|initialised|slog on|off",
     "what it tells the controller, which looks once a second or when its record changes"},
    {Verb::SetHeartbeat, kNoKind, "renderer heartbeat every SECONDS",
     "how far its heartbeats are apart, real seconds; 0.2 at first"},
    {Verb::SetBus, kNoKind, "bus up|down", "the CAN interface; while it is down frames are lost"},
    {Verb::PressSwitch, kNoKind, "switch press|release",
     "the switch on the board; released at first"},
    {Verb::ClickSwitch, kNoKind, "switch click SECONDS", "pressed for that long, real seconds"},
    {Verb::BounceSwitch, kNoKind, "switch bounce SECONDS",
     "its line flips every few milliseconds for that long and ends as it was"},
    {Verb::SetLine, kNoKind, "acc|deserializer-lock|serializer-lock on|off",
     "ACC, off at first; the head unit's and the screen's link, on at first"},
    {Verb::SetReadable, kNoKind, "switch|acc|deserializer-lock|serializer-lock unreadable|readable",
     "whether the line's value file is there"},
    {Verb::SlowScripts, kNoKind, "scripts slow SECONDS",
     "the board's scripts end that much later, real seconds; the picture is routed then"},
    {Verb::SetScripts, kNoKind, "scripts failing|normal",
     "they end with an error and route nothing; or at once"},
    {Verb::RunCommand, kNoKind, "run \"TEXT\"",
     "a shell command on the board, beside the controller; what it has printed is told, and the "
     "drive "
     "fails if it does"},
    {Verb::OmitWatchdog, kNoKind, "board without watchdog", "only at 0"},
    {Verb::RestartController, kNoKind, "board with service",
     "only at 0: the path is routed for PVM when a controller ends, and it is started again a "
     "second later"},
    {Verb::AllowLoss, Kind::Frames, "board may lose frames",
     "only at 0: a frame that is lost does not fail the drive"},
    {Verb::Pace, kNoKind, "pace LOW to HIGH", "only at 0: the drive holds at --speed LOW to HIGH"},
    {Verb::End, kNoKind, "end", "the drive goes on until here; a vehicle of words sends no longer"},
    {Verb::ExpectState, Kind::Picture, "expect picture PVM|DA [within SECONDS | for SECONDS]",
     "the picture that is routed; PVM before any script has run"},
    {Verb::ExpectEvent, Kind::Command, "expect command \"TEXT\" [within SECONDS]",
     "exactly this has been run"},
    {Verb::ExpectNone, Kind::Command, "expect no command [\"TEXT\"] [for SECONDS]",
     "nothing that is not accounted for, or not this"},
    {Verb::ExpectEvent, Kind::Log, "expect log \"TEXT\" [within SECONDS]",
     "a line of the controller's log holds this text"},
    {Verb::ExpectNone, Kind::Log, "expect no log \"TEXT\" [for SECONDS]",
     "no line that is not accounted for holds it"},
    {Verb::ExpectState, Kind::Gpio, "expect gpio OUTPUT 0|1 [within SECONDS | for SECONDS]",
     "a line as the controller last wrote it; unknown before"},
    {Verb::ExpectState, Kind::Record,
     "expect record <gear> P|R|N|D|- [within SECONDS | for SECONDS]",
     "what the renderer has received"},
    {Verb::ExpectState, Kind::Record,
     "expect record <light> OFF|LEFT|RIGHT|HAZARD [within SECONDS | for SECONDS]", ""},
    {Verb::ExpectState, Kind::Record, "expect record <key> OFF|1|ON [within SECONDS | for SECONDS]",
     ""},
    {Verb::ExpectState, Kind::Record,
     "expect record speed|angle NUMBER [within SECONDS | for SECONDS]", ""},
    {Verb::ExpectState, Kind::Record, "expect record <radar> HEX [within SECONDS | for SECONDS]",
     "8 digits in lower case"},
    {Verb::ExpectFed, Kind::Watchdog, "expect watchdog fed within SECONDS",
     "the controller feeds it from now on"},
    {Verb::ExpectUnfed, Kind::Watchdog, "expect watchdog unfed for SECONDS", "it does not"},
    {Verb::ExpectState, Kind::Watchdog,
     "expect watchdog opened|disarmed|closed|reset [within SECONDS]",
     "what has become of it, feeding aside"},
    {Verb::ExpectState, Kind::Bus, "expect bus up|down [within SECONDS | for SECONDS]",
     "the CAN interface's state"},
    {Verb::ExpectState, Kind::Frames, "expect frames <lost> [within SECONDS]",
     "a frame has been lost so far; without this line, losing one fails the drive"},
    {Verb::ExpectState, Kind::Power, "expect power on|off [within SECONDS | for SECONDS]",
     "the board's power; `off` that is not expected ends the drive"},
    {Verb::ExpectState, Kind::Power, "expect power <off> by reboot|watchdog within SECONDS",
     "and why"},
};

struct Word
{
    QString text;
    bool quoted = false;
};

/// One way to fill a pattern, without options.
struct Form
{
    const Row *row;
    QStringList elements;
};

QStringList withoutOptions(const QString &pattern)
{
    const auto open = pattern.indexOf('[');
    if (open < 0)
        return {pattern};
    const auto close = pattern.indexOf(']', open);
    const QStringList options = pattern.mid(open + 1, close - open - 1).split(" | ");
    QStringList result;
    for (const QString &rest : withoutOptions(pattern.mid(close + 1)))
        for (const QString &option : QStringList{QString()} + options)
            result << pattern.left(open) + option + ' ' + rest;
    return result;
}

const QVector<Form> &forms()
{
    static const QVector<Form> all = [] {
        QVector<Form> result;
        for (const Row &row : kRows)
            for (const QString &form : withoutOptions(row.pattern))
                result.append({&row, form.simplified().split(' ')});
        return result;
    }();
    return all;
}

bool isLike(const QString &text, const char *pattern)
{
    return QRegularExpression(QRegularExpression::anchoredPattern(pattern)).match(text).hasMatch();
}

bool isNumber(const QString &text, int low, int high)
{
    return isLike(text, "-?[0-9]{1,9}") && text.toInt() >= low && text.toInt() <= high;
}

bool isSeconds(const QString &text)
{
    int64_t us = 0;
    return parseSeconds(text, &us);
}

bool isOutput(const QString &text)
{
    const BoardLine *line = isNumber(text, 0, 999) ? boardlines::find(text.toInt()) : nullptr;
    return line != nullptr && line->isOutput();
}

/// Returns what is wrong, or an empty text.
QString readSentFrame(const QString &text, BusFrame *frame)
{
    FrameLine line;
    QString fault = readFrame(text, &line);
    *frame = line.frame;
    return fault.isEmpty() && !line.isPlayable ? "CAN FD and remote frames are not sent" : fault;
}

bool isFrame(const QString &text)
{
    BusFrame frame;
    return readSentFrame(text, &frame).isEmpty();
}

const struct Value
{
    const char *name;
    bool (*fits)(const QString &text);
    const char *range; ///< for people; empty where the name says it
} kValues[] = {
    {"SECONDS", isSeconds, "such as 2.5, without a unit"},
    {"LOW", isSeconds, "such as 0.5"},
    {"HIGH", isSeconds, "such as 2"},
    {"NUMBER", [](const QString &text) { return isNumber(text, -999999999, 999999999); },
     "whole, without a unit"},
    {"SPEED", [](const QString &text) { return isNumber(text, 0, 255); },
     "0 to 255, the car's own byte, without a unit"},
    {"ANGLE", [](const QString &text) { return isNumber(text, -9999, 9999); },
     "-9999 to 9999, without a unit"},
    {"PERCENT", [](const QString &text) { return isNumber(text, 0, 100); },
     "0 to 100, without a sign"},
    {"OUTPUT", isOutput, ""}, // the board's lines tell
    {"HEX", [](const QString &text) { return isLike(text, "[0-9a-f]{8}"); },
     "8 digits in lower case, such as ff000000"},
    {"LEVELS", [](const QString &text) { return isLike(text, "[0-3]{6}"); },
     "six digits from 0 to 3, sensor 5 first"},
    {"DATE", [](const QString &text) { return QDate::fromString(text, Qt::ISODate).isValid(); },
     "such as 2023-11-16"},
    {"TIME", [](const QString &text) { return QTime::fromString(text, "hh:mm").isValid(); },
     "00:00 to 23:59"},
    {"FRAME", isFrame, ""},
};

/// Null for a word.
const Value *valueNamed(const QString &element)
{
    for (const Value &value : kValues)
        if (element == value.name)
            return &value;
    return nullptr;
}

QString outputs()
{
    QStringList outputs;
    for (const BoardLine &line : boardlines::kAll)
        if (line.isOutput())
            outputs << QStringLiteral("%1 %2").arg(line.number).arg(line.name);
    return outputs.join(", ");
}

QString withoutMarks(QString pattern)
{
    return pattern.remove('<').remove('>');
}

bool fits(const QString &element, const Word &word)
{
    if (element == "\"TEXT\"" || word.quoted)
        return element == "\"TEXT\"" && word.quoted && !word.text.isEmpty();
    if (const Value *value = valueNamed(element))
        return value->fits(word.text);
    return withoutMarks(element).split('|').contains(word.text);
}

/// Whether what stands there is the writer's choice, and not just a word of the language.
bool isChosen(const QString &element)
{
    return element != element.toLower() || element.contains('|') || element.startsWith('<');
}

int fittingElements(const Form &form, const QVector<Word> &words)
{
    int count = 0;
    while (count < form.elements.size() && count < words.size() &&
           fits(form.elements[count], words[count]))
        ++count;
    return count;
}

/// Up to a comment, which is cut off the text.
QString splitWords(QString *text, QVector<Word> *words, QString *comment)
{
    static const QRegularExpression pattern(R"("((?:[^"\\]|\\.)*)("?)(\S?)|(\S+))");
    static const QRegularExpression escape(R"(\\(.))");
    auto matches = pattern.globalMatch(*text);
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        if (match.captured().startsWith('#')) {
            *comment = text->mid(match.capturedStart() + 1).trimmed();
            text->truncate(match.capturedStart());
            return {};
        }
        const bool isQuoted = match.capturedStart(1) >= 0;
        if (isQuoted && match.capturedLength(2) == 0)
            return "text without its closing quote";
        if (isQuoted && match.capturedLength(3) > 0)
            return "no blank behind the closing quote";
        if (isQuoted)
            words->append({match.captured(1).replace(escape, "\\1"), true});
        else
            words->append({match.captured(4)});
    }
    return {};
}

/// What may stand behind the words that fit; empty for an end.
QStringList allowedBehind(const QVector<Word> &words, int fitting)
{
    QStringList allowed;
    for (const Form &form : forms())
        if (fittingElements(form, words) >= fitting)
            allowed << withoutMarks(form.elements.value(fitting));
    allowed.removeDuplicates();
    return allowed;
}

/// Each word once, a value with its range.
QString listed(const QStringList &allowed)
{
    QStringList list, seen;
    for (const QString &element : allowed) {
        const Value *value = valueNamed(element);
        const QString range = element == "OUTPUT" ? outputs() : value ? value->range : "";
        QStringList choice = element.split('|');
        for (const QString &word : seen)
            choice.removeAll(word);
        seen += choice;
        if (!range.isEmpty())
            list << QStringLiteral("%1 (%2)").arg(element, range);
        else if (!choice.isEmpty() && !element.isEmpty())
            list << choice.join('|');
    }
    if (allowed.contains(QString()))
        list << "nothing more";
    return list.join(", ");
}

/// What was probably meant instead of a word.
QString meant(const QString &word, const QStringList &allowed)
{
    const bool isNumeric = std::any_of(allowed.begin(), allowed.end(), [](const QString &element) {
        const Value *value = valueNamed(element);
        return value != nullptr && value->fits("1");
    });
    const QString likely = isNumeric && !withoutUnit(word).isEmpty()
                               ? withoutUnit(word)
                               : nearestOf(word, allowed.join('|').split('|'));
    return likely.isEmpty() ? QString() : QStringLiteral("; did you mean %1?").arg(likely);
}

QString misfit(const QVector<Word> &words)
{
    int fitting = 0;
    for (const Form &form : forms())
        fitting = std::max(fitting, fittingElements(form, words));
    const auto quoted = [&words](int i) { return '\'' + printable(words[i].text) + '\''; };
    const QString where = fitting == 0 ? "the time" : quoted(fitting - 1);
    const QStringList allowed = allowedBehind(words, fitting);
    if (fitting == words.size())
        return QStringLiteral("a word is missing after %1; allowed there: %2")
            .arg(where, listed(allowed));
    // Only a frame can be wrong in more ways than one sees.
    BusFrame frame;
    const QString list = allowed == QStringList{"FRAME"}
                             ? "a frame, but " + readSentFrame(words[fitting].text, &frame)
                             : listed(allowed) + meant(words[fitting].text, allowed);
    return QStringLiteral("%1 is not allowed after %2; allowed there: %3")
        .arg(quoted(fitting), where, list);
}

void fill(Statement *statement, const Form &form, const QVector<Word> &words)
{
    statement->verb = form.row->verb;
    statement->kind = form.row->kind;
    for (int i = 0; i < words.size(); ++i) {
        const QString &element = form.elements[i];
        const QString &word = words[i].text;
        if (element == "within" || element == "for") {
            statement->limit = element == "for" ? Limit::For : Limit::Within;
        } else if (element == "LOW" || (element == "SECONDS" && statement->limit == Limit::None)) {
            parseSeconds(word, &statement->spanUs);
        } else if (element == "HIGH" || element == "SECONDS") {
            parseSeconds(word, &statement->limitUs);
        } else if (isChosen(element)) {
            statement->subject = statement->value;
            statement->value = word;
        }
        if (element == "FRAME")
            readSentFrame(word, &statement->frame);
    }
}

} // namespace

QString parseWords(QString text, Statement *statement)
{
    QVector<Word> words;
    QString fault = splitWords(&text, &words, &statement->comment);
    if (!fault.isEmpty())
        return fault;
    for (const Form &form : forms()) {
        if (form.elements.size() != words.size() || fittingElements(form, words) != words.size())
            continue;
        fill(statement, form, words);
        statement->text = text.trimmed();
        return {};
    }
    return misfit(words);
}

QStringList wordsBehind(QString text)
{
    QVector<Word> words;
    QString comment;
    const auto size = text.size();
    if (!splitWords(&text, &words, &comment).isEmpty() || text.size() < size) // a comment
        return {};
    QStringList behind;
    for (const QString &element : allowedBehind(words, static_cast<int>(words.size())))
        behind += element.split('|');
    behind.removeAll(QString());
    behind.removeDuplicates();
    return behind;
}

bool isValueName(const QString &word)
{
    return word == "\"TEXT\"" || valueNamed(word) != nullptr;
}

QString wordListing()
{
    QString listing;
    for (const Row &row : kRows) {
        listing += QStringLiteral("at SECONDS %1\n").arg(withoutMarks(row.pattern));
        if (*row.meaning)
            listing += QStringLiteral("        %1\n").arg(row.meaning);
        if (QString(row.pattern).contains("OUTPUT"))
            listing += QStringLiteral("        OUTPUT: %1\n").arg(outputs());
    }
    return listing;
}
