// SPDX-License-Identifier: MIT
//
// Any bytes as a journal, and the drive that is captured from it: each of its lines can be read.

#include "bench/incident/capture.h"
#include "bench/language/seconds.h"
#include "bench/language/words.h"
#include "fuzz/check.h"

#include <QTextStream>

namespace {

void checkDrive(const QString &drive)
{
    int64_t before = 0;
    for (const QString &line : drive.split('\n')) {
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        int64_t us = 0;
        check(line.startsWith("at ") && parseSeconds(line.section(' ', 1, 1), &us), "no time");
        check(us >= before, "time runs backwards");
        before = us;
        Statement statement;
        check(parseWords(line.section(' ', 2), &statement).isEmpty(), "no words of a drive");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    const QByteArray text(reinterpret_cast<const char *>(bytes), static_cast<int>(size));
    Journal journal;
    if (!readJournalText(text, &journal).isEmpty())
        return 0;
    int64_t before = 0;
    for (const JournalLine &line : journal.lines) {
        check(line.us >= before, "lines out of order");
        before = line.us;
    }
    for (const bool isPart : {false, true}) {
        CaptureOptions options;
        options.isWithoutClock = isPart;
        options.fromUs = isPart ? before / 2 : 0;
        QString drive;
        QTextStream out(&drive);
        if (writeDrive(journal, {}, options, out).isEmpty())
            checkDrive(drive);
    }
    return 0;
}
