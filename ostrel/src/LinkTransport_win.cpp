// SPDX-License-Identifier: MIT
#include "LinkTransport.h"

namespace Velmora::OstrelAdapter {

// Pipes are served through their socket object.
LinkTransport* LinkTransport::Adopt(QLocalSocket* socket, QObject* parent)
{
    return Wrap(socket, parent);
}

} // namespace Velmora::OstrelAdapter
