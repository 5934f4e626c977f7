// SPDX-License-Identifier: MIT

#include "bench/drive/words.h"

#include "bench/board/boardlines.h"
#include "bench/board/printable.h"
#include "bench/drive/candump.h"

#include <QDate>
#include <QRegularExpression>
#include <QStringList>
#include <QVector>

#include <algorithm>

namespace {

using Kind = Fact::Kind;

struct Row
{
    Verb verb;
    Kind kind; ///< for the expectations
    const char *pattern;
    const char *meaning;
};

// In a pattern, a|b is a choice of words, [x] may be left out, [x | y] allows one of both or
// neither, and capitals stand for a value. What is chosen or given becomes the statement's subject
// and value, in this order, and so does a word in <>.
const Row kRows[] = {
    {Verb::SetGear, {}, "gear P|R|N|D|undefined", "the lever; P at first"},
    {Verb::SetLight, {}, "light OFF|LEFT|RIGHT", "the turn light; OFF at first"},
    {Verb::SetKey, {}, "key OFF|1|ON", "the ignition key; ON at first"},
    {Verb::SetSpeed,
     {},
     "speed SPEED [over SECONDS]",
     "0 to 255, 0 at first; at once, or in a straight line that ends there"},
    {Verb::SetAngle,
     {},
     "angle ANGLE [over SECONDS]",
     "the steering wheel as the renderer gets it, -2838 to 2838, 0 at first; further turned it is "
     "cut there"},
    {Verb::SetRadar,
     {},
     "radar LEVELS",
     "six digits, sensor 5 first, 0 nothing to 3 near; 000000 at first"},
    {Verb::SetClock,
     {},
     "clock DATE TIME",
     "local, such as 2023-11-16 20:34; from then on it is sent and goes on"},
    {Verb::SetLoad,
     {},
     "bus load PERCENT",
     "other talk fills the bus up to this share of 500 kbit/s; none at first"},
    {Verb::SetAwake, {}, "bus asleep|awake", "whether anybody sends; awake at first"},
    {Verb::SendFrame,
     {},
     "frame FRAME [every SECONDS for SECONDS]",
     "a frame as candump -L writes it, such as 413#0102; 8 digits with bit 29 set, an error frame"},
    {Verb::StartRenderer,
     {},
     "renderer start",
     "starts the renderer, which runs from power-on unless this is a drive's first word to it"},
    {Verb::KillRenderer, {}, "renderer kill", "kills it (SIGKILL)"},
    {Verb::SetRendererFlag,
     {},
     "renderer heartbeat|turn-switch|initialised|slog on|off",
     "what it tells the controller, which looks once a second or when its record changes"},
    {Verb::SetBus, {}, "bus up|down", "the CAN interface; while it is down frames are lost"},
    {Verb::PressSwitch, {}, "switch press|release", "the switch on the board; released at first"},
    {Verb::ClickSwitch, {}, "switch click SECONDS", "pressed for that long, real seconds"},
    {Verb::BounceSwitch,
     {},
     "switch bounce SECONDS",
     "its line flips every few milliseconds for that long and ends as it was"},
    {Verb::SetLine,
     {},
     "acc|deserializer-lock|serializer-lock on|off",
     "ACC, off at first; the head unit's and the screen's link, on at first"},
    {Verb::SetReadable,
     {},
     "switch|acc|deserializer-lock|serializer-lock unreadable|readable",
     "whether the line's value file is there"},
    {Verb::SlowScripts,
     {},
     "scripts slow SECONDS",
     "the board's scripts end that much later, real seconds; the picture is routed then"},
    {Verb::SetScripts,
     {},
     "scripts failing|normal",
     "they end with an error and route nothing; or at once"},
    {Verb::OmitWatchdog, {}, "board without watchdog", "only at 0"},
    {Verb::Pace, {}, "pace LOW to HIGH", "only at 0: the drive holds at --speed LOW to HIGH"},
    {Verb::End, {}, "end", "the drive goes on until here; a vehicle of words sends no longer"},
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
    const int open = pattern.indexOf(QLatin1Char('['));
    if (open < 0)
        return {pattern};
    const int close = pattern.indexOf(QLatin1Char(']'), open);
    const QStringList options = pattern.mid(open + 1, close - open - 1).split(" | ");
    QStringList result;
    for (const QString &rest : withoutOptions(pattern.mid(close + 1))) {
        for (const QString &option : QStringList{QString()} + options)
            result << pattern.left(open) + option + QLatin1Char(' ') + rest;
    }
    return result;
}

const QVector<Form> &forms()
{
    static const QVector<Form> all = [] {
        QVector<Form> result;
        for (const Row &row : kRows) {
            for (const QString &form : withoutOptions(QString::fromLatin1(row.pattern)))
                result.append({&row, form.simplified().split(QLatin1Char(' '))});
        }
        return result;
    }();
    return all;
}

bool isSeconds(const QString &text)
{
    int64_t us = 0;
    const QByteArray bytes = text.toUtf8();
    return parseSeconds(bytes.constBegin(), bytes.constEnd(), &us);
}

int64_t microseconds(const QString &text)
{
    int64_t us = 0;
    const QByteArray bytes = text.toUtf8();
    parseSeconds(bytes.constBegin(), bytes.constEnd(), &us);
    return us;
}

template <int low, int high> bool isNumber(const QString &text)
{
    static const QRegularExpression pattern(QStringLiteral("\\A-?[0-9]{1,9}\\z"));
    return pattern.match(text).hasMatch() && text.toInt() >= low && text.toInt() <= high;
}

bool isOutput(const QString &text)
{
    const BoardLine *line = isNumber<0, 999>(text) ? boardlines::find(text.toInt()) : nullptr;
    return line != nullptr && line->isOutput();
}

bool isHex(const QString &text)
{
    static const QRegularExpression pattern(QStringLiteral("\\A[0-9a-f]{8}\\z"));
    return pattern.match(text).hasMatch();
}

bool isLevels(const QString &text)
{
    static const QRegularExpression pattern(QStringLiteral("\\A[0-3]{6}\\z"));
    return pattern.match(text).hasMatch();
}

bool isDate(const QString &text)
{
    return QDate::fromString(text, Qt::ISODate).isValid();
}

bool isTime(const QString &text)
{
    return QTime::fromString(text, QStringLiteral("hh:mm")).isValid();
}

QString readFrame(const QString &text, BusFrame *frame)
{
    const QByteArray bytes = text.toUtf8();
    FrameLine line(bytes.constBegin(), bytes.constEnd());
    QString fault = line.readFrame();
    *frame = line.frame;
    return fault.isEmpty() && !line.isPlayable
               ? QStringLiteral("CAN FD and remote frames are not sent")
               : fault;
}

bool isFrame(const QString &text)
{
    BusFrame frame;
    return readFrame(text, &frame).isEmpty();
}

const struct
{
    const char *name;
    bool (*fits)(const QString &text);
} kValues[] = {
    {"SECONDS", isSeconds},
    {"LOW", isSeconds},
    {"HIGH", isSeconds},
    {"NUMBER", isNumber<-999999999, 999999999>},
    {"SPEED", isNumber<0, 255>},
    {"ANGLE", isNumber<-9999, 9999>},
    {"PERCENT", isNumber<0, 100>},
    {"OUTPUT", isOutput},
    {"HEX", isHex},
    {"LEVELS", isLevels},
    {"DATE", isDate},
    {"TIME", isTime},
    {"FRAME", isFrame},
};

bool isText(const QString &element)
{
    return element == QLatin1String("\"TEXT\"");
}

bool fits(const QString &element, const Word &word)
{
    if (isText(element) || word.quoted)
        return isText(element) && word.quoted && !word.text.isEmpty();
    for (const auto &value : kValues) {
        if (element == QLatin1String(value.name))
            return value.fits(word.text);
    }
    if (element.startsWith(QLatin1Char('<')))
        return element == QLatin1Char('<') + word.text + QLatin1Char('>');
    return element.split(QLatin1Char('|')).contains(word.text);
}

/// Whether what stands there is the writer's choice, and not just a word of the language.
bool isChosen(const QString &element)
{
    return element != element.toLower() || element.contains(QLatin1Char('|')) ||
           element.startsWith(QLatin1Char('<'));
}

int fittingElements(const Form &form, const QVector<Word> &words)
{
    int count = 0;
    while (count < form.elements.size() && count < words.size() &&
           fits(form.elements[count], words[count]))
        ++count;
    return count;
}

QString withoutMarks(QString pattern)
{
    return pattern.remove(QLatin1Char('<')).remove(QLatin1Char('>'));
}

/// A quoted text from its opening quote on; leaves @p at behind its closing quote.
QString takeQuoted(const QString &text, int *at, Word *word)
{
    word->quoted = true;
    for (++*at; *at < text.size(); ++*at) {
        if (text[*at] == QLatin1Char('"')) {
            ++*at;
            return {};
        }
        if (text[*at] == QLatin1Char('\\') && ++*at == text.size())
            break;
        word->text += text[*at];
    }
    return QStringLiteral("text without its closing quote");
}

QString splitWords(const QString &text, QVector<Word> *words)
{
    int at = 0;
    while (true) {
        while (at < text.size() && text[at].isSpace())
            ++at;
        if (at == text.size())
            return {};
        Word word;
        if (text[at] == QLatin1Char('"')) {
            QString fault = takeQuoted(text, &at, &word);
            if (!fault.isEmpty())
                return fault;
            if (at < text.size() && !text[at].isSpace())
                return QStringLiteral("no blank behind the closing quote");
        } else {
            while (at < text.size() && !text[at].isSpace())
                word.text += text[at++];
        }
        words->append(word);
    }
}

QString whatIsAllowed(const QVector<Word> &words, int fitting)
{
    QStringList allowed;
    bool mayEnd = false;
    for (const Form &form : forms()) {
        if (fittingElements(form, words) < fitting)
            continue;
        if (form.elements.size() == fitting)
            mayEnd = true;
        else
            allowed << withoutMarks(form.elements[fitting]);
    }
    // Only a frame can be wrong in more ways than one sees.
    if (allowed == QStringList{QStringLiteral("FRAME"), QStringLiteral("FRAME")} &&
        fitting < words.size()) {
        BusFrame frame;
        return QStringLiteral("a frame, but ") + readFrame(words[fitting].text, &frame);
    }
    if (mayEnd)
        allowed << QStringLiteral("nothing more");
    allowed.removeDuplicates();
    return allowed.join(QStringLiteral(", "));
}

QString misfit(const QVector<Word> &words)
{
    int fitting = 0;
    for (const Form &form : forms())
        fitting = std::max(fitting, fittingElements(form, words));
    const QString where =
        fitting == 0 ? QStringLiteral("after the time")
                     : QStringLiteral("after '%1'").arg(printable(words[fitting - 1].text));
    const QString what =
        fitting == words.size()
            ? QStringLiteral("a word is missing")
            : QStringLiteral("'%1' is not allowed").arg(printable(words[fitting].text));
    return QStringLiteral("%1 %2; allowed there: %3")
        .arg(what, where, whatIsAllowed(words, fitting));
}

void fill(Statement *statement, const Form &form, const QVector<Word> &words)
{
    statement->verb = form.row->verb;
    statement->kind = form.row->kind;
    for (int i = 0; i < words.size(); ++i) {
        const QString &element = form.elements[i];
        const QString &word = words[i].text;
        if (element == QLatin1String("within")) {
            statement->limit = Limit::Within;
        } else if (element == QLatin1String("for")) {
            statement->limit = Limit::For;
        } else if (element == QLatin1String("SECONDS") && statement->limit == Limit::None) {
            statement->spanUs = microseconds(word);
        } else if (element == QLatin1String("SECONDS") || element == QLatin1String("HIGH")) {
            statement->limitUs = microseconds(word);
        } else if (element == QLatin1String("LOW")) {
            statement->spanUs = microseconds(word);
        } else if (isChosen(element)) {
            statement->subject = statement->value;
            statement->value = word;
        }
        if (element == QLatin1String("FRAME"))
            readFrame(word, &statement->frame);
    }
}

} // namespace

QString parseWords(const QString &text, Statement *statement)
{
    QVector<Word> words;
    QString fault = splitWords(text, &words);
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

bool parseSeconds(const char *begin, const char *end, int64_t *us)
{
    const auto isDigit = [end](const char *p) { return p != end && *p >= '0' && *p <= '9'; };
    const char *p = begin;
    int64_t whole = 0;
    for (; isDigit(p); ++p) {
        whole = whole * 10 + (*p - '0');
        if (whole > 1'000'000'000'000)
            return false;
    }
    if (p == begin)
        return false;
    int64_t fraction = 0;
    if (p != end && *p == '.') {
        const char *digits = ++p;
        for (int64_t unit = 100'000; isDigit(p); ++p, unit /= 10)
            fraction += (*p - '0') * unit;
        if (p == digits)
            return false;
    }
    *us = whole * 1'000'000 + fraction;
    return p == end;
}

QString wordListing()
{
    QString listing;
    for (const Row &row : kRows) {
        listing += QStringLiteral("at SECONDS %1\n").arg(withoutMarks(QLatin1String(row.pattern)));
        if (*row.meaning)
            listing += QStringLiteral("        %1\n").arg(QLatin1String(row.meaning));
    }
    return listing;
}
