// SPDX-License-Identifier: MIT
#include "Endpoint.h"

namespace Velmora::OstrelAdapter {

// Named pipes; the server restricts them to the current user.
QString EndpointName(qint64 processId)
{
    if (processId <= 0)
        return QString();
    return QStringLiteral("velmora-ostrel-%1").arg(processId);
}

} // namespace Velmora::OstrelAdapter

namespace Velmora::OstrelAdapter {

// Pipes restricted to the current user; the peer's id is taken from its introduction.
qint64 PeerProcessIdOf(qintptr)
{
    return -1;
}

// Pipes are written through their socket object only.
qint64 WriteWithoutWaiting(qintptr, const char*, qint64)
{
    return 0;
}

} // namespace Velmora::OstrelAdapter
