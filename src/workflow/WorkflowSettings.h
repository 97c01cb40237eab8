// SPDX-License-Identifier: MIT
#pragma once

#include <QHash>
#include <QString>

namespace Velmora::WorkflowCore {

// The per-user settings of workflows, one element per workflow Id (exact case), one attribute
// per setting.
QString WorkflowSettingsFolder();
QString WorkflowSettingsFile();

// Empty when anything is missing.
QString ReadWorkflowSetting(const QString& workflowId, const QString& key);
// Creates the folder, the file and the workflow's element as needed; a damaged file is never
// overwritten.
void WriteWorkflowSetting(const QString& workflowId, const QString& key, const QString& value);

// The settings file at file as reads see it: for each Id, the attributes of the first element
// that carries it. False when the file cannot be read. fromDocument reads it as a whole document,
// the slower way the streaming read is checked against.
bool ReadWorkflowSettingsFile(const QString& file, QHash<QString, QHash<QString, QString>>& settings,
                              bool fromDocument = false);

// While one lives, writes of settings gather in memory and reach the file once, when the last
// batch ends: destroying a catalogue of thousands of templates rewrites the file once, not once
// per template. The file ends up exactly as the single writes would have left it.
class WorkflowSettingsBatch
{
public:
    WorkflowSettingsBatch();
    ~WorkflowSettingsBatch();
    WorkflowSettingsBatch(const WorkflowSettingsBatch&) = delete;
    WorkflowSettingsBatch& operator=(const WorkflowSettingsBatch&) = delete;
};

} // namespace Velmora::WorkflowCore
