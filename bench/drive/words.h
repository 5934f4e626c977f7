#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>

/// What a drive asks for at a moment. The words behind each are tabled in words.cpp.
enum class Verb {
    StartRenderer,
    KillRenderer,
    SetRendererFlag,
    SetBus,
    SetSwitch,
    BounceSwitch,
    SetLine,     ///< the ACC and lock inputs
    SetReadable, ///< whether an input's file can be opened
    SetScripts,
    OmitWatchdog,
    End,
    ExpectState, ///< the last value of a subject: picture, gpio, record, bus, power, watchdog
    ExpectEvent, ///< a command or a log line has come
    ExpectNone,  ///< no command or log line has come
    ExpectFed,   ///< the watchdog is fed
    ExpectUnfed  ///< the watchdog is not fed
};

enum class Limit { None, Within, For };

/// One `at SECONDS WORDS...` line.
struct Statement
{
    int line = 0;     ///< in the file, counted from 1
    int64_t atUs = 0; ///< drive time, microseconds
    Verb verb = Verb::End;
    QStringList words; ///< without `within` and `for`; texts without quotes and escapes
    QString text;      ///< as written
    Limit limit = Limit::None;
    int64_t spanUs = 0; ///< the seconds that were given, microseconds
};

/// Reads the words behind the time into @p statement: verb, words, text, limit and span. Returns
/// what is wrong, or an empty text.
QString parseWords(const QString &text, Statement *statement);

/// Reads "12", "0.25" or "1700000000.123456" into microseconds; further digits are cut off. False
/// for anything else, and above 10^12 s.
bool parseSeconds(const char *begin, const char *end, int64_t *us);

/// The table of words, one row a line, for people.
QString wordListing();

/// @p text on one line: control characters replaced, long texts cut.
QString printable(const QString &text);
