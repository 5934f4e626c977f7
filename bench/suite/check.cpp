// SPDX-License-Identifier: MIT

#include "bench/suite/check.h"

#include "bench/board/descriptor.h"
#include "bench/board/printable.h"
#include "bench/drive/driveclock.h"
#include "bench/drive/drivefile.h"

#include <QFile>
#include <QTextStream>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>

namespace {

QString describe(const Drive &drive)
{
    const auto expected =
        std::count_if(drive.statements.begin(), drive.statements.end(),
                      [](const Statement &statement) { return statement.isExpectation(); });
    return QStringLiteral("lasts %1 s; frames: %2; %3")
        .arg(DriveClock::seconds(drive.endUs, 1))
        .arg(drive.frames.size())
        .arg(expected > 0 ? QStringLiteral("expectations: %1").arg(expected)
                          : QString("nothing is expected"));
}

} // namespace

bool checkDrives(const QVector<ListedDrive> &drives, const LogCut &cut, QTextStream &out,
                 QTextStream &errors)
{
    bool isGood = true;
    for (const ListedDrive &listed : drives) {
        Drive drive;
        const Descriptor file(
            open(QFile::encodeName(listed.path).constData(), O_RDONLY | O_CLOEXEC));
        const QString fault = file < 0 ? listed.path + ": " + strerror(errno)
                                       : readDrive(file, listed.path, cut, &drive);
        isGood &= fault.isEmpty();
        if (!fault.isEmpty()) {
            errors << "pvm-bench: " << printable(fault, 1000) << '\n';
            continue;
        }
        out << printable(listed.path, 1000) << ": " << describe(drive) << '\n';
        for (const QString &remark : drive.remarks)
            out << "  " << printable(remark, 1000) << '\n';
    }
    return isGood;
}
