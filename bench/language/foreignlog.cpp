// SPDX-License-Identifier: MIT

#include "bench/language/foreignlog.h"

#include <QRegularExpression>

namespace {

struct ForeignForm
{
    bool isFirstOnly;    ///< its first line tells, not any
    const char *pattern; ///< of the line's bytes, each taken for a character
    const char *what;
    const char *command;
};

// In the forms of candump the data stand behind the length, two letters a byte; what comes after
// them is text. Times since the frame before are added up.
const ForeignForm kForms[] = {
    {true, R"(\A\x1f\x8b)", "packed with gzip", "zcat FILE | pvm-bench play -"},
    {true, R"(\A\xfd7zXZ)", "packed with xz", "xzcat FILE | pvm-bench play -"},
    {true, R"(\A\x28\xb5\x2f\xfd)", "packed with zstd", "zstdcat FILE | pvm-bench play -"},
    {true, R"(\A(?:\xff\xfe|\xfe\xff))", "UTF-16",
     "iconv -f UTF-16 -t UTF-8 FILE | pvm-bench play -"},
    {true, R"(\A(?:date |base (?:hex|dec)))", "a log in the ASC format (can-utils)",
     "asc2log -I FILE | pvm-bench play -"},
    {true, R"(\A;\$FILEVERSION)", "a log in the TRC format (python3-can; its channel is can1)",
     "can_logconvert FILE x.log && pvm-bench play x.log --channel can1"},
    {true, R"(\ALOGG)", "a log in the BLF format (python3-can)",
     "can_logconvert FILE x.log && pvm-bench play x.log"},
    {false, R"(\A\(\d+-\d\d-\d\d \d\d:\d\d:\d\d\.\d+\)\s+\S+\s+[0-9A-F]{3,8}\s+\[)",
     "written by candump -tA",
     R"(awk '!/remote/ { d = ""; for (i = 6; length($i) == 2; i++) d = d $i; )"
     R"(t = $1 " " $2; gsub(/[^0-9.]/, " ", t); )"
     R"(print "(" mktime(t) substr($2, 9), $3, $4 "#" d }' FILE | pvm-bench play -)"},
    {false, R"(\A\(\d{9,}\.\d+\)\s+\S+\s+[0-9A-F]{3,8}\s+\[)", "written by candump -ta",
     R"(awk '!/remote/ { d = ""; for (i = 5; length($i) == 2; i++) d = d $i; )"
     R"(print $1, $2, $3 "#" d }' FILE | pvm-bench play -)"},
    {false, R"(\A\(\d{1,8}\.\d+\)\s+\S+\s+[0-9A-F]{3,8}\s+\[)",
     "written by candump -td (or -tz: then with = for +=)",
     R"(awk '!/remote/ { d = ""; for (i = 5; length($i) == 2; i++) d = d $i; )"
     R"(printf "(%.6f) %s %s#%s\n", t += substr($1, 2), $2, $3, d }' FILE | pvm-bench play -)"},
    {false, R"(\A\S+\s+[0-9A-F]{3,8}\s+\[\d+\])", "written by candump without times",
     "candump -L can0 >FILE"},
};

} // namespace

QString foreignLog(const QByteArray &line, bool isFirst)
{
    const QString text = QString::fromLatin1(line);
    for (const ForeignForm &form : kForms)
        if ((isFirst || !form.isFirstOnly) &&
            QRegularExpression(form.pattern).match(text).hasMatch())
            return QStringLiteral("%1: try %2").arg(form.what, form.command);
    return {};
}
