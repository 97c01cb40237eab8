// SPDX-License-Identifier: MIT
#include "Endpoint.h"
#include "PrivateFolder.h"

#include <cerrno>
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

qint64 WriteWithoutWaiting(qintptr socketDescriptor, const char* data, qint64 size)
{
#ifdef MSG_NOSIGNAL
    if (socketDescriptor < 0 || size <= 0)
        return 0;
    for (;;)
    {
        // A peer that went away must not end this process with a signal.
        const ssize_t sent = ::send(int(socketDescriptor), data, size_t(size), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent >= 0)
            return qint64(sent);
        if (errno != EINTR)
            return 0;
    }
#else
    Q_UNUSED(socketDescriptor);
    Q_UNUSED(data);
    Q_UNUSED(size);
    return 0;
#endif
}

} // namespace Velmora::OstrelAdapter
