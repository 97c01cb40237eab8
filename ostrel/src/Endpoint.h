// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace Velmora::OstrelAdapter {

// The endpoint a process with that id listens on, reachable by this user only; empty when there
// can be none.
QString EndpointName(qint64 processId);

// The process at the other end of a connected local socket, as the system tells it; -1 when the
// system does not tell.
qint64 PeerProcessIdOf(qintptr socketDescriptor);

// Hands bytes to a connected local socket without waiting: what the system takes at once, 0 when
// it takes nothing now (its buffer is full, the link has failed, or the system offers no such
// write). A failure is left for the socket to meet on its own next write, which reports it.
qint64 WriteWithoutWaiting(qintptr socketDescriptor, const char* data, qint64 size);

} // namespace Velmora::OstrelAdapter
