// SPDX-License-Identifier: MIT
#include "Endpoint.h"
#include "PrivateFolder.h"

#include <sys/socket.h>
#include <sys/types.h>

namespace Velmora::OstrelAdapter {

QString EndpointName(qint64 processId)
{
    if (processId <= 0)
        return QString();
    // Endpoints are socket files in a folder only this user may enter, inside the user's runtime
    // folder.
    const QString folder = PrivateFolder::RuntimeSubFolder(QStringLiteral("velmora-ostrel"));
    return folder.isEmpty() ? QString() : folder + QLatin1Char('/') + QString::number(processId);
}

qint64 PeerProcessIdOf(qintptr socketDescriptor)
{
#ifdef SO_PEERCRED
    struct ucred credentials;
    socklen_t size = sizeof(credentials);
    if (socketDescriptor >= 0 &&
        ::getsockopt(int(socketDescriptor), SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0 &&
        size == sizeof(credentials) && credentials.pid > 0)
        return qint64(credentials.pid);
#else
    Q_UNUSED(socketDescriptor);
#endif
    return -1;
}

} // namespace Velmora::OstrelAdapter
