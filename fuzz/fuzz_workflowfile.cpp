// Feeds any bytes to the workflow reader as a .workflow file, then writes what it read and reads
// that again: the two reads must agree on every field the file carries.

#include <VmWorkflowCore/Workflow.h>

#include "util/FacadeAccess.h"
#include "workflow/WorkflowFile.h"
#include "workflow/WorkflowImp.h"

#include "FuzzSupport.h"

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowFuzz;

namespace {

// The document writer ends a processing instruction with a line break whatever follows it, and a
// text after one keeps the break it was read with, so such a text gains one at every write. The
// markup is otherwise read back as it was written.
QString WithoutBreaksAfterInstructions(QString markup)
{
    qsizetype at = 0;
    while ((at = markup.indexOf(QLatin1String("?>\n"), at)) >= 0)
    {
        at += 2;
        qsizetype end = at;
        while (end < markup.size() && markup.at(end) == QLatin1Char('\n'))
            ++end;
        markup.remove(at, end - at);
    }
    return markup;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // The per-user settings a template's reading consults live in the fuzzer's own folder.
    qputenv("XDG_DATA_HOME", QFile::encodeName(Folder() + QStringLiteral("/data")));
    qputenv("HOME", QFile::encodeName(Folder()));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString in = Folder() + QStringLiteral("/in.workflow");
    const QString out = Folder() + QStringLiteral("/out.workflow");
    Check(PutFile(in, Bytes(data, size)));

    Workflow first;
    if (!LoadWorkflow(*ImpOf(first), in, QString()))
        return 0;
    WorkflowFields a = ImpOf(first)->Fields();
    Check(WriteWorkflow(*ImpOf(first), a.Name, out, a.Id));

    Workflow second;
    Check(LoadWorkflow(*ImpOf(second), out, a.Id));
    const WorkflowFields& b = ImpOf(second)->Fields();

    Check(b.Id == a.Id);
    Check(b.Name == a.Name);
    Check(b.Plugin == a.Plugin);
    Check(b.TemplateId == a.TemplateId);
    Check(b.HelpId == a.HelpId);
    Check(b.Description == a.Description);
    Check(b.Tooltip == a.Tooltip);
    Check(b.Tag == a.Tag);
    Check(b.Keywords == a.Keywords);
    Check(b.UIFile == a.UIFile);
    Check(b.PrimaryProduct == a.PrimaryProduct);
    Check(b.TargetProduct == a.TargetProduct);
    Check(b.RequiredProducts == a.RequiredProducts);
    Check(b.RequiredProductsDisplayText == a.RequiredProductsDisplayText);
    Check(b.TemplateImage == a.TemplateImage);
    Check(b.ModifiedImage == a.ModifiedImage);
    Check(b.IsReadOnly == a.IsReadOnly);
    // Written files always describe user workflows; dates are written to the second.
    Check(!b.IsTemplate);
    Check(b.CreatedDate.toSecsSinceEpoch() == a.CreatedDate.toSecsSinceEpoch());
    Check(b.Settings == a.Settings || WithoutBreaksAfterInstructions(b.Settings.ToString()) ==
                                          WithoutBreaksAfterInstructions(a.Settings.ToString()));
    return 0;
}
