// SPDX-License-Identifier: MIT

#include "bench/language/candump.h"

#include "bench/board/printable.h"
#include "bench/language/seconds.h"

#include <QRegularExpression>

#include <algorithm>
#include <cstdio>
#include <linux/can.h>
#include <vector>

namespace {

/// From text in which H stands for a hex digit; \h is a blank or a tab.
QRegularExpression pattern(const char *text)
{
    return QRegularExpression(QString(text).replace('H', "[[:xdigit:]]"));
}

const QRegularExpression kHead = pattern(R"(\A\((0*\d{1,12}\.\d+)\)\h+([^\h#]{1,15})(?:\h+|\z))");

// Identifiers have 11 or 29 bits, and one more for error frames. A raw length and the direction may
// follow; the bench needs neither.
const QRegularExpression kFrame =
    pattern(R"(\A([0-7]HH|[0-3]H{7})#(?:((?:HH){0,8})|R[0-8]?|#H(?:HH){0,64}))"
            R"((?:_[9A-Fa-f])?(?:\h+[RT]?)?\z)");

struct Fault
{
    QRegularExpression pattern; ///< fits a text that has it; what is captured is quoted
    const char *text;
};

// The first one that fits is told, which is the leftmost. The last ones fit whatever is left.
const std::vector<Fault> kHeadFaults = {
    {pattern(R"(\A[^)]*\z)"), "time stamp without ')'"},
    {pattern(R"(\A(?!\(0*\d{1,12}\.\d+\))([^)]*\)))"), "bad time stamp %1"},
    {pattern(R"(\A[^)]*\)[^\h])"), "no blank behind the time stamp"},
    {pattern(R"(\A[^)]*\)\h*(?:[^\h#]*#|\z))"), "missing channel"},
    {pattern(R"(\A[^)]*\)\h*([^\h]*))"), "channel name %1 is too long"},
};
const std::vector<Fault> kFrameFaults = {
    {pattern(R"(\A\z)"), "missing frame"},
    {pattern(R"(\A([^\h#]*)(?:\h|\z))"), "no '#' in frame %1"},
    {pattern(R"(\A(?!(?:HHH|H{8})#)([^#]*))"), "identifier %1 has not 3 or 8 hex digits"},
    {pattern(R"(\A([89A-Fa-f]HH|[4-9A-Fa-f]H{7})#)"), "identifier %1 is too large"},
    {pattern(R"(\AH*##(?!H))"), "CAN FD frame without flags"},
    {pattern(R"(\AH*#(?!R)(?:#H)?+H*([^[:xdigit:]_\h]))"), "%1 is not a hex digit"},
    {pattern(R"(\AH*#(?!R)(?:#H)?+(?:HH)*+H)"), "odd number of hex digits in the data"},
    {pattern(R"(\AH*#(?:HH){9})"), "more than 8 bytes of data"},
    {pattern(R"(\AH*##H(?:HH){65})"), "more than 64 bytes of data"},
    {pattern(R"(\A[^\h_]*_(?![9A-Fa-f]))"), "bad raw length behind '_'"},
    {pattern(R"(\AH*#(?:R[0-8]?|#?H*)(?:_H)?(?:\h+[RT]?)?(.*))"), "%1 behind the frame"},
};

QString faultOf(const QString &text, const std::vector<Fault> &faults)
{
    const auto fault = std::find_if(faults.begin(), faults.end() - 1, [&text](const Fault &f) {
        return f.pattern.match(text).hasMatch();
    });
    const QString quoted = printable(fault->pattern.match(text).captured(1).left(40));
    return QString(fault->text).replace("%1", '\'' + quoted + '\'');
}

} // namespace

QString readFrameLine(const QString &text, FrameLine *line)
{
    const QRegularExpressionMatch head = kHead.match(text);
    if (!head.hasMatch())
        return faultOf(text, kHeadFaults);
    parseSeconds(head.captured(1), &line->frame.stampUs);
    line->channel = head.captured(2);
    return readFrame(text.mid(head.capturedEnd()), line);
}

QString readFrame(const QString &text, FrameLine *line)
{
    const QRegularExpressionMatch match = kFrame.match(text);
    if (!match.hasMatch())
        return faultOf(text, kFrameFaults);
    BusFrame &frame = line->frame;
    frame.id = match.captured(1).toUInt(nullptr, 16);
    if (match.capturedLength(1) == 8 && (frame.id & CAN_ERR_FLAG) == 0)
        frame.id |= CAN_EFF_FLAG;
    line->isPlayable = match.capturedStart(2) >= 0;
    const QByteArray data = QByteArray::fromHex(match.captured(2).toLatin1());
    frame.length = static_cast<uint8_t>(data.size());
    std::copy(data.begin(), data.end(), frame.data);
    return {};
}

QByteArray candumpLine(const BusFrame &frame, const QByteArray &channel)
{
    const bool isLong = (frame.id & (CAN_EFF_FLAG | CAN_ERR_FLAG)) != 0;
    const uint32_t id = frame.id & (isLong ? CAN_ERR_FLAG | CAN_EFF_MASK : CAN_SFF_MASK);
    char stampAndId[64];
    snprintf(stampAndId, sizeof stampAndId,
             isLong ? "(%lld.%06lld) %s %08X#" : "(%lld.%06lld) %s %03X#",
             static_cast<long long>(frame.stampUs / 1'000'000),
             static_cast<long long>(frame.stampUs % 1'000'000), channel.constData(), id);
    return QByteArray(stampAndId) +
           QByteArray(reinterpret_cast<const char *>(frame.data), frame.length).toHex().toUpper() +
           '\n';
}
