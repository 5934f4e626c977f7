// SPDX-License-Identifier: MIT

#include "bench/drive/candump.h"

#include "bench/board/printable.h"
#include "bench/drive/words.h"

#include <algorithm>
#include <cstdio>
#include <linux/can.h>

namespace {

constexpr int kLongestChannel = 15; ///< of a network interface's name
constexpr int kLargestData = 8;
constexpr int kLargestFlexibleData = 64;

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

bool isNoHexDigit(char c)
{
    return hexDigit(c) < 0;
}

QString quoted(const char *begin, const char *end)
{
    const auto length = std::min<std::ptrdiff_t>(end - begin, 40);
    return QStringLiteral("'%1'").arg(
        printable(QString::fromUtf8(begin, static_cast<int>(length))));
}

} // namespace

QString FrameLine::read()
{
    QString fault = readStamp();
    if (fault.isEmpty())
        fault = readChannel();
    return fault.isEmpty() ? readFrame() : fault;
}

QString FrameLine::readFrame()
{
    QString fault = readIdentifier();
    if (fault.isEmpty())
        fault = readPayload();
    return fault.isEmpty() ? readDirection() : fault;
}

const char *FrameLine::wordEnd() const
{
    return std::find_if(p, mEnd, [](char c) { return c == ' ' || c == '\t'; });
}

bool FrameLine::skipBlanks()
{
    const char *const before = p;
    while (p != mEnd && (*p == ' ' || *p == '\t'))
        ++p;
    return p != before;
}

QString FrameLine::readStamp()
{
    const char *const close = std::find(p, mEnd, ')');
    if (close == mEnd)
        return QStringLiteral("time stamp without ')'");
    if (std::find(p, close, '.') == close || !parseSeconds(p + 1, close, &frame.stampUs))
        return QStringLiteral("bad time stamp %1").arg(quoted(p, close + 1));
    p = close + 1;
    return {};
}

QString FrameLine::readChannel()
{
    if (!skipBlanks() && p != mEnd)
        return QStringLiteral("no blank behind the time stamp");
    channel = p;
    p = wordEnd();
    channelLength = static_cast<int>(p - channel);
    if (channelLength == 0 || std::find(channel, p, '#') != p)
        return QStringLiteral("missing channel");
    if (channelLength > kLongestChannel)
        return QStringLiteral("channel name %1 is too long").arg(quoted(channel, p));
    return {};
}

QString FrameLine::readIdentifier()
{
    skipBlanks();
    const char *const begin = p;
    p = std::find(p, wordEnd(), '#');
    const QString name = quoted(begin, p);
    const auto digits = p - begin;
    if (digits == 0 && p == mEnd)
        return QStringLiteral("missing frame");
    if (p == mEnd || *p != '#')
        return QStringLiteral("no '#' in frame %1").arg(name);
    if ((digits != 3 && digits != 8) || std::any_of(begin, p, isNoHexDigit))
        return QStringLiteral("identifier %1 has not 3 or 8 hex digits").arg(name);
    uint32_t id = 0;
    for (const char *c = begin; c != p; ++c)
        id = id << 4 | static_cast<uint32_t>(hexDigit(*c));
    ++p;
    return setIdentifier(id, digits == 3, name);
}

QString FrameLine::setIdentifier(uint32_t id, bool isStandard, const QString &name)
{
    const bool isError = !isStandard && (id & CAN_ERR_FLAG) != 0;
    const uint32_t value = isError ? id & ~CAN_ERR_FLAG : id;
    if (value > (isStandard ? CAN_SFF_MASK : CAN_EFF_MASK))
        return QStringLiteral("identifier %1 is too large").arg(name);
    frame.id = isStandard || isError ? id : id | CAN_EFF_FLAG;
    return {};
}

QString FrameLine::readPayload()
{
    if (p != mEnd && *p == 'R')
        return readRemote();
    if (p != mEnd && *p == '#')
        return readFlexibleData();
    QString fault = readBytes(kLargestData);
    return fault.isEmpty() ? readRawLength() : fault;
}

QString FrameLine::readRemote()
{
    isPlayable = false;
    ++p;
    if (p != mEnd && *p >= '0' && *p <= '8')
        ++p;
    return readRawLength();
}

QString FrameLine::readFlexibleData()
{
    isPlayable = false;
    ++p;
    if (p == mEnd || isNoHexDigit(*p))
        return QStringLiteral("CAN FD frame without flags");
    ++p;
    return readBytes(kLargestFlexibleData);
}

QString FrameLine::readBytes(int most)
{
    const char *const end = std::find(p, wordEnd(), '_');
    const char *const stray = std::find_if(p, end, isNoHexDigit);
    if (stray != end)
        return QStringLiteral("%1 is not a hex digit").arg(quoted(stray, stray + 1));
    if ((end - p) % 2 != 0)
        return QStringLiteral("odd number of hex digits in the data");
    if ((end - p) / 2 > most)
        return QStringLiteral("more than %1 bytes of data").arg(most);
    for (; p != end; p += 2) {
        if (isPlayable)
            frame.data[frame.length++] = static_cast<uint8_t>(hexDigit(p[0]) << 4 | hexDigit(p[1]));
    }
    return {};
}

QString FrameLine::readRawLength()
{
    if (p == mEnd || *p != '_')
        return {};
    ++p;
    if (p == mEnd || hexDigit(*p) <= kLargestData)
        return QStringLiteral("bad raw length behind '_'");
    ++p;
    return {};
}

QString FrameLine::readDirection()
{
    const bool isApart = skipBlanks();
    if (p != mEnd && isApart && (*p == 'R' || *p == 'T'))
        ++p;
    return p == mEnd ? QString() : QStringLiteral("%1 behind the frame").arg(quoted(p, mEnd));
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
