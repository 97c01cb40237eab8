// SPDX-License-Identifier: MIT
#include "FrameScanner.h"

#include <QMetaType>
#include <QtEndian>

namespace Velmora::OstrelAdapter {

namespace {

// How the stream marks a null string or byte array instead of giving a length.
constexpr quint32 kNullLength = 0xffffffffu;
// The byte after a date-time's clock time that says how to read it: in local time, in UTC, with
// an offset from UTC, or with a named time zone. The stream reader keeps any other byte as it is,
// and what it makes of one (a zone without a name among them) is nothing a peer may hand us.
constexpr quint8 kLocalTime = 0;
constexpr quint8 kUtc = 1;
constexpr quint8 kOffsetFromUtc = 2;

} // namespace

bool FrameScanner::IsAcceptable(const char* payload, qsizetype size)
{
    FrameScanner scanner(payload, size);
    return scanner.SkipString() && scanner.SkipMap(1) && scanner.m_left == 0;
}

bool FrameScanner::Skip(qsizetype count)
{
    if (count < 0 || count > m_left)
        return false;
    m_data += count;
    m_left -= count;
    return true;
}

bool FrameScanner::ReadCount(quint32& value)
{
    if (m_left < 4)
        return false;
    value = qFromBigEndian<quint32>(m_data);
    return Skip(4);
}

bool FrameScanner::SkipString()
{
    quint32 bytes = 0;
    if (!ReadCount(bytes))
        return false;
    return bytes == kNullLength || (bytes % 2 == 0 && Skip(qsizetype(bytes)));
}

bool FrameScanner::SkipBytes()
{
    quint32 bytes = 0;
    if (!ReadCount(bytes))
        return false;
    return bytes == kNullLength || Skip(qsizetype(bytes));
}

bool FrameScanner::SkipMap(int depth)
{
    if (depth > kMaxNestingDepth)
        return false;
    // Every entry takes bytes, so a count larger than the frame can hold ends with the frame.
    quint32 count = 0;
    if (!ReadCount(count))
        return false;
    for (quint32 i = 0; i < count; ++i)
    {
        if (!SkipString() || !SkipValue(depth))
            return false;
    }
    return true;
}

bool FrameScanner::SkipList(int depth)
{
    if (depth > kMaxNestingDepth)
        return false;
    quint32 count = 0;
    if (!ReadCount(count))
        return false;
    for (quint32 i = 0; i < count; ++i)
    {
        if (!SkipValue(depth))
            return false;
    }
    return true;
}

bool FrameScanner::SkipValue(int depth)
{
    quint32 type = 0;
    // The type, then the null flag, then the value.
    if (!ReadCount(type) || !Skip(1))
        return false;
    quint32 count = 0;
    switch (type)
    {
    case QMetaType::UnknownType:
        return true;
    case QMetaType::Bool:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
        return Skip(1);
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::QChar:
        return Skip(2);
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::QTime:
        return Skip(4);
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Float: // written at double precision
    case QMetaType::QDate:
        return Skip(8);
    case QMetaType::QUuid:
        return Skip(16);
    case QMetaType::QDateTime:
    {
        if (!Skip(8 + 4) || m_left < 1)
            return false;
        const quint8 timeKind = quint8(*m_data);
        // A named zone would be looked up by a name the peer chose: only the three plain kinds pass.
        if (!Skip(1))
            return false;
        if (timeKind == kOffsetFromUtc)
            return Skip(4);
        return timeKind == kLocalTime || timeKind == kUtc;
    }
    case QMetaType::QString:
        return SkipString();
    case QMetaType::QByteArray:
        return SkipBytes();
    case QMetaType::QStringList:
        if (!ReadCount(count))
            return false;
        for (quint32 i = 0; i < count; ++i)
        {
            if (!SkipString())
                return false;
        }
        return true;
    case QMetaType::QByteArrayList:
        if (!ReadCount(count))
            return false;
        for (quint32 i = 0; i < count; ++i)
        {
            if (!SkipBytes())
                return false;
        }
        return true;
    case QMetaType::QVariantList:
        return SkipList(depth + 1);
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash:
        return SkipMap(depth + 1);
    default:
        // Anything else, above all a type named by the peer, is not a hub value.
        return false;
    }
}

} // namespace Velmora::OstrelAdapter
