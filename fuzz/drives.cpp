// SPDX-License-Identifier: MIT
//
// Any bytes as a drive, and as the words of one line.

#include "bench/drive/drivefile.h"
#include "bench/language/words.h"
#include "fuzz/check.h"

#include <QRegularExpression>

#include <sys/mman.h>
#include <unistd.h>

// Hours of frames only take their time.
static bool isLong(const QString &text)
{
    static const QRegularExpression number("(^|\\s)0*[1-9]\\d{3}");
    return text.contains(number);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    const auto text =
        QString::fromUtf8(reinterpret_cast<const char *>(bytes), static_cast<int>(size));
    if (isLong(text))
        return 0;
    const int file = memfd_create("drive", MFD_CLOEXEC);
    check(write(file, bytes, size) == static_cast<ssize_t>(size) && lseek(file, 0, SEEK_SET) == 0,
          "no file");
    Drive drive;
    const QString fault = readDrive(file, "drive", {}, &drive);
    close(file);
    check(!fault.isEmpty() || !drive.frames.empty() || !drive.statements.empty(),
          "a drive with nothing to play");
    int64_t before = 0;
    for (const BusFrame &frame : drive.frames) {
        check(!fault.isEmpty() || drive.timeOf(frame) >= before, "frames out of order");
        before = drive.timeOf(frame);
        check(frame.length <= 8, "a frame of more than 8 bytes");
    }
    Statement statement;
    if (parseWords(text, &statement).isEmpty())
        check(!statement.text.isEmpty(), "words without a text");
    return 0;
}
