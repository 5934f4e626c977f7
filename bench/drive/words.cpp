#include "bench/drive/words.h"

#include <QRegularExpression>
#include <QVector>

namespace {

struct Row
{
    Verb verb;
    const char *pattern;
    const char *meaning;
};

// In a pattern, a|b is a choice of words, [x] may be left out, [x | y] allows one of both or
// neither. SECONDS, NUMBER, HEX and "TEXT" stand for a value of that kind.
const Row kRows[] = {
    {Verb::StartRenderer, "renderer start", "starts the renderer"},
    {Verb::KillRenderer, "renderer kill", "kills the renderer (SIGKILL)"},
    {Verb::SetRendererFlag, "renderer heartbeat|turn-switch|initialised|slog on|off",
     "what the renderer tells the controller"},
    {Verb::SetBus, "bus up|down", "the CAN interface goes down or comes back"},
    {Verb::SetSwitch, "switch press|release", "the switch on the board; released at first"},
    {Verb::SetSwitch, "switch click SECONDS", "presses it and releases it that much later"},
    {Verb::BounceSwitch, "switch bounce SECONDS",
     "its line flips every few milliseconds and ends as it was"},
    {Verb::SetLine, "acc on|off", "the ACC line; off at first"},
    {Verb::SetLine, "lock deserializer|serializer on|off",
     "a lock line: the head unit's link, the screen's link; on at first"},
    {Verb::SetReadable, "line switch|acc|deserializer-lock|serializer-lock unreadable|readable",
     "whether the line's value file can be opened"},
    {Verb::SetScripts, "script slow SECONDS", "the board's scripts end that much later"},
    {Verb::SetScripts, "script failing|normal",
     "they end with an error and route nothing; or at once"},
    {Verb::OmitWatchdog, "board without watchdog", "only at 0, before the first frame"},
    {Verb::End, "end", "the drive goes on until here"},
    {Verb::ExpectState, "expect picture PVM|DA [within SECONDS | for SECONDS]",
     "the picture that is routed"},
    {Verb::ExpectEvent, "expect command \"TEXT\" [within SECONDS]", "this command has been run"},
    {Verb::ExpectNone, "expect no command [\"TEXT\"] [for SECONDS]",
     "no command that is not accounted for"},
    {Verb::ExpectEvent, "expect log \"TEXT\" [within SECONDS]",
     "a line of the controller's log holds this text"},
    {Verb::ExpectNone, "expect no log \"TEXT\" [for SECONDS]",
     "no line of the log that is not accounted for holds it"},
    {Verb::ExpectState, "expect gpio NUMBER 0|1 [within SECONDS | for SECONDS]",
     "a line's level as the controller last wrote it"},
    {Verb::ExpectState, "expect record gear P|R|N|D|- [within SECONDS | for SECONDS]",
     "what the renderer has received"},
    {Verb::ExpectState, "expect record light OFF|LEFT|RIGHT|HAZARD [within SECONDS | for SECONDS]",
     ""},
    {Verb::ExpectState, "expect record key OFF|1|ON [within SECONDS | for SECONDS]", ""},
    {Verb::ExpectState, "expect record speed|angle NUMBER [within SECONDS | for SECONDS]", ""},
    {Verb::ExpectState, "expect record radar HEX [within SECONDS | for SECONDS]",
     "HEX: 8 digits in lower case"},
    {Verb::ExpectFed, "expect watchdog fed within SECONDS", "the controller feeds it"},
    {Verb::ExpectUnfed, "expect watchdog unfed for SECONDS", "the controller does not feed it"},
    {Verb::ExpectState, "expect watchdog opened|disarmed|closed|reset [within SECONDS]",
     "what has become of it, feeding aside"},
    {Verb::ExpectState, "expect bus up|down [within SECONDS | for SECONDS]",
     "the CAN interface's state"},
    {Verb::ExpectState, "expect power on|off [within SECONDS | for SECONDS]",
     "the board's power; `off` that is not expected ends the drive"},
    {Verb::ExpectState, "expect power off \"TEXT\" within SECONDS",
     "and why: \"reboot\" or \"watchdog\""},
};

struct Word
{
    QString text;
    bool quoted = false;
};

/// One way to fill a pattern, without options.
struct Form
{
    Verb verb;
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
                result.append({row.verb, form.simplified().split(QLatin1Char(' '))});
        }
        return result;
    }();
    return all;
}

bool matches(const QRegularExpression &pattern, const QString &text)
{
    return pattern.match(text).hasMatch();
}

bool isSeconds(const QString &text, int64_t *us)
{
    const QByteArray bytes = text.toUtf8();
    return parseSeconds(bytes.constBegin(), bytes.constEnd(), us);
}

bool fits(const QString &element, const Word &word)
{
    static const QRegularExpression number(QStringLiteral("\\A-?[0-9]{1,9}\\z"));
    static const QRegularExpression hex(QStringLiteral("\\A[0-9a-f]{8}\\z"));
    int64_t us = 0;
    if (element == QLatin1String("\"TEXT\"") || word.quoted)
        return word.quoted && !word.text.isEmpty() && element == QLatin1String("\"TEXT\"");
    if (element == QLatin1String("SECONDS"))
        return isSeconds(word.text, &us);
    if (element == QLatin1String("NUMBER"))
        return matches(number, word.text);
    if (element == QLatin1String("HEX"))
        return matches(hex, word.text);
    return element.split(QLatin1Char('|')).contains(word.text);
}

int fittingElements(const Form &form, const QVector<Word> &words)
{
    int count = 0;
    while (count < form.elements.size() && count < words.size() &&
           fits(form.elements[count], words[count]))
        ++count;
    return count;
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
            QString wrong = takeQuoted(text, &at, &word);
            if (!wrong.isEmpty())
                return wrong;
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
        else if (!allowed.contains(form.elements[fitting]))
            allowed << form.elements[fitting];
    }
    if (mayEnd)
        allowed << QStringLiteral("nothing more");
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
    statement->verb = form.verb;
    for (int i = 0; i < words.size(); ++i) {
        const QString &element = form.elements[i];
        if (element == QLatin1String("within"))
            statement->limit = Limit::Within;
        else if (element == QLatin1String("for"))
            statement->limit = Limit::For;
        else if (element == QLatin1String("SECONDS"))
            isSeconds(words[i].text, &statement->spanUs);
        else
            statement->words << words[i].text;
    }
}

} // namespace

QString parseWords(const QString &text, Statement *statement)
{
    QVector<Word> words;
    QString wrong = splitWords(text, &words);
    if (!wrong.isEmpty())
        return wrong;
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
        listing += QStringLiteral("at SECONDS %1\n").arg(QLatin1String(row.pattern));
        if (*row.meaning)
            listing += QStringLiteral("        %1\n").arg(QLatin1String(row.meaning));
    }
    return listing;
}

QString printable(const QString &text)
{
    constexpr int kLongest = 200;
    QString result = text.left(kLongest);
    for (QChar &c : result) {
        if (c.category() == QChar::Other_Control)
            c = QLatin1Char('?');
    }
    return text.size() > kLongest ? result + QStringLiteral("...") : result;
}
