#pragma once

#include <QString>

namespace Velmora::OstrelAdapter {

// The endpoint a process with that id listens on, reachable by this user only; empty when there
// can be none.
QString EndpointName(qint64 processId);

} // namespace Velmora::OstrelAdapter
