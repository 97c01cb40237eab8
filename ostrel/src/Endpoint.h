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

} // namespace Velmora::OstrelAdapter
