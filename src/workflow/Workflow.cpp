// SPDX-License-Identifier: MIT
#include <VmWorkflowCore/Workflow.h>

#include "util/TextOut.h"
#include "workflow/WorkflowImp.h"

namespace Velmora::WorkflowCore {

namespace {

// Compare-then-assign: a setter of the exported interface stores only a different value. Field
// is a QString or the CompactText of the settings markup.
template <typename Field> bool AssignIfDifferent(Field& field, const WideChar* value)
{
    const Field text(TextIn(value));
    if (field == text)
        return false;
    field = text;
    return true;
}

} // namespace

Workflow::Workflow() : m_imp(new WorkflowImp(this)) {}

Workflow::~Workflow() = default;

int Workflow::GetTemplateId(WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->Fields().TemplateId, buffer, size);
}

bool Workflow::IsTemplate() const
{
    return m_imp->Fields().IsTemplate;
}

int Workflow::GetId(WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->Fields().Id, buffer, size);
}

int Workflow::GetHelpId(WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->Fields().HelpId, buffer, size);
}

void Workflow::SetHelpId(const WideChar* value)
{
    AssignIfDifferent(m_imp->Fields().HelpId, value);
}

int Workflow::GetName(WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->Fields().Name, buffer, size);
}

void Workflow::SetName(const WideChar* value)
{
    if (AssignIfDifferent(m_imp->Fields().Name, value))
        m_imp->KeysChanged();
}

int Workflow::GetDescription(WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->Fields().Description, buffer, size);
}

void Workflow::SetDescription(const WideChar* value)
{
    AssignIfDifferent(m_imp->Fields().Description, value);
}

int Workflow::GetImage(WorkflowImage which, int key, WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->GetImage(which, key), buffer, size);
}

void Workflow::SetImage(WorkflowImage which, int key, const WideChar* path)
{
    m_imp->SetImage(which, key, TextIn(path));
}

int Workflow::GetToolTip(WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->Fields().Tooltip, buffer, size);
}

void Workflow::SetToolTip(const WideChar* value)
{
    AssignIfDifferent(m_imp->Fields().Tooltip, value);
}

int Workflow::GetTag(WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->Fields().Tag, buffer, size);
}

void Workflow::SetTag(const WideChar* value)
{
    AssignIfDifferent(m_imp->Fields().Tag, value);
}

int Workflow::GetSettings(WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->Fields().Settings.ToString(), buffer, size);
}

void Workflow::SetSettings(const WideChar* value)
{
    AssignIfDifferent(m_imp->Fields().Settings, value);
}

int Workflow::GetUIFile(WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->Fields().UIFile, buffer, size);
}

void Workflow::SetUIFile(const WideChar* value)
{
    AssignIfDifferent(m_imp->Fields().UIFile, value);
}

int Workflow::GetSourceFile(WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->Fields().SourceFile, buffer, size);
}

int Workflow::GetPrimaryProduct(WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->Fields().PrimaryProduct, buffer, size);
}

int Workflow::GetTargetProduct(WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->Fields().TargetProduct, buffer, size);
}

int Workflow::GetRequiredProducts(WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->Fields().RequiredProducts, buffer, size);
}

int Workflow::GetRequiredProductsDisplayText(WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->Fields().RequiredProductsDisplayText, buffer, size);
}

unsigned int Workflow::GetCreatedDate()
{
    return WorkflowImp::ToInterfaceDate(m_imp->Fields().CreatedDate);
}

unsigned int Workflow::GetLastModifiedDate()
{
    return WorkflowImp::ToInterfaceDate(m_imp->Fields().LastModifiedDate);
}

int Workflow::GetKeywords(WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->Fields().Keywords, buffer, size);
}

void Workflow::SetKeywords(const WideChar* value)
{
    AssignIfDifferent(m_imp->Fields().Keywords, value);
}

int Workflow::GetIntroduction(WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->Fields().Introduction, buffer, size);
}

bool Workflow::Load(const WideChar* file, const WideChar* id)
{
    return m_imp->Load(TextIn(file), TextIn(id));
}

bool Workflow::Save()
{
    return m_imp->Save();
}

bool Workflow::Save(const WideChar* file)
{
    return m_imp->Save(TextIn(file));
}

bool Workflow::IsReadOnly()
{
    return m_imp->IsReadOnly();
}

void Workflow::Reset()
{
    m_imp->Reset();
}

Workflow* Workflow::Clone()
{
    auto* copy = new Workflow;
    copy->CopyFrom(this);
    return copy;
}

void Workflow::CopyFrom(Workflow* other)
{
    if (other)
        m_imp->CopyFrom(*other->m_imp);
}

void Workflow::SetUISetting(const WideChar* key, const WideChar* value)
{
    m_imp->SetUISetting(TextIn(key), TextIn(value));
}

int Workflow::GetUISetting(const WideChar* key, WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->GetUISetting(TextIn(key)), buffer, size);
}

} // namespace Velmora::WorkflowCore
