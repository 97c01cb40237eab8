// SPDX-License-Identifier: MIT
#pragma once

#include "XmlStreamReading.h"

// A reader for the common shape of a workflow file, straight from its UTF-8 bytes: the files a
// catalogue holds by the thousand are plain UTF-8 with elements, attributes, texts, the five
// predefined entities, character references, character-data sections and comments. Such a file
// is read several times faster than through the general streaming reader, into the very same
// plain data. Anything else (another encoding, a document type, a processing instruction, a
// name outside ASCII, a file that is not well-formed, or one nested too deep) is declined, and
// the general reader takes it. Nothing here touches a QObject, so it may run on any thread.
namespace Velmora::WorkflowCore {

// Reads the bytes as ParseWorkflowFile would, with the same meaning of firstTag and keep; true
// with data complete when the file has the common shape, false (data untouched) when declined.
bool ScanCommonWorkflowFile(const QByteArray& bytes, const QString& firstTag, WorkflowFileData& data,
                            const ElementFilter& keep = ElementFilter());

} // namespace Velmora::WorkflowCore
