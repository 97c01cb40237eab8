// SPDX-License-Identifier: MIT
#pragma once

#include <VmWorkflowCore/VmWorkflowCoreExport.h>

#include <QString>

namespace Velmora::WorkflowCore {

// The one copy rule for every text getter of the exported interface: a null buffer asks for the
// length; a size below 1 writes nothing; otherwise at most size - 1 code units are copied and
// the text is always terminated. The result never counts the terminator.
int CopyTextOut(const QString& value, WideChar* buffer, int size);

// A zero-terminated UTF-16 text from the exported interface.
QString TextIn(const WideChar* text);

} // namespace Velmora::WorkflowCore
