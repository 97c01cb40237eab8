// Feeds any bytes to the hub's frame decoder as one frame payload, the way a link judges and
// reads what a peer sent: the scanner decides, and only an accepted payload reaches the stream
// reader. An accepted payload must decode to exactly one name and data map, and what decodes must
// be accepted again once encoded.

#include "FrameScanner.h"

#include "FuzzSupport.h"

#include <QDataStream>
#include <QVariantMap>

using namespace Velmora::OstrelAdapter;
using namespace VmWorkflowFuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const char* payload = reinterpret_cast<const char*>(data);
    const bool accepted = FrameScanner::IsAcceptable(payload, qsizetype(size));
    Check(FrameScanner::IsAcceptable(payload, qsizetype(size)) == accepted);
    if (!accepted)
        return 0;

    QDataStream stream(QByteArray::fromRawData(payload, qsizetype(size)));
    stream.setVersion(QDataStream::Qt_6_0);
    QString name;
    QVariantMap map;
    stream >> name >> map;
    Check(stream.status() == QDataStream::Ok);
    Check(stream.atEnd());

    QByteArray encoded;
    {
        QDataStream out(&encoded, QIODevice::WriteOnly);
        out.setVersion(QDataStream::Qt_6_0);
        out << name << map;
    }
    Check(FrameScanner::IsAcceptable(encoded.constData(), encoded.size()));
    return 0;
}
