// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace Velmora::WorkflowCore {

// The host version a launch asks for: major and minor of the machine's "WorkflowHostVersion".
struct HostVersion
{
    unsigned int major = 2017;
    unsigned int minor = 0;
    // Whether the value named exactly a major and a minor version; otherwise the defaults hold.
    bool fromSettings = false;
};

// Reads a "WorkflowHostVersion" text: exactly two dot-separated parts (empty parts dropped) give
// major and minor, a part that is not a number counting 0; anything else falls back to 2017.0.
HostVersion ParseHostVersion(const QString& value);

// The value as stored in the machine-wide settings; empty when missing.
QString ReadHostVersionSetting();

// "Temp_<name>_<uuid>", cut to 246 characters at the end of the name so that the braced uuid
// stays whole.
QString TemporaryLaunchName(const QString& workflowName, const QString& uuid);

} // namespace Velmora::WorkflowCore
