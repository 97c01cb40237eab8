// SPDX-License-Identifier: MIT
#include "manager/ProductRules.h"

#include "manager/ProductCatalog.h"
#include "manager/ProductExpression.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowQueryKeys.h>

#include <OstrelAdapter/OstrelAdapterUtility.h>

#include <QStringList>
#include <QVariant>

namespace Velmora::WorkflowCore {

namespace {

bool ListHasMatchingId(const QString& storedIds, const QString& filterId)
{
    for (const QString& id : storedIds.split(QLatin1Char(','), Qt::SkipEmptyParts))
    {
        if (ProductIdMatches(filterId, id))
            return true;
    }
    return false;
}

} // namespace

bool ProductInstalledLeaf(const ProductCatalog* products, const QString& operand, bool& value)
{
    value = products && !products->InstalledProducts(operand.trimmed()).isEmpty();
    return true;
}

bool ProductIdMatches(const QString& filterId, const QString& workflowProductId)
{
    if (filterId.isEmpty() || workflowProductId.isEmpty())
        return false;
    const QStringList filter = filterId.split(QLatin1Char(':'));
    const QStringList workflow = workflowProductId.split(QLatin1Char(':'));
    const bool sameCode = filter.at(0) == workflow.at(0);
    if (filter.size() < 2 || workflow.size() < 2)
        return sameCode;
    return sameCode && OstrelAdapter::OstrelAdapterUtility::VersionCompare(filter.at(1), workflow.at(1));
}

bool WorkflowMatchesFilter(Workflow* workflow, const QString& key, const QString& value)
{
    if (!workflow)
        return false;
    const WorkflowFields& fields = ImpOf(workflow)->Fields();
    const auto is = [&key](const char* name) {
        return key.compare(QLatin1String(name), Qt::CaseInsensitive) == 0;
    };

    if (is(QueryKeys::IsExecutable))
    {
        if (fields.RequiredProducts.isEmpty())
            return false;
        WorkflowCatalogue* catalogue = ImpOf(workflow)->Catalogue();
        const ProductCatalog* products = catalogue ? &catalogue->Products() : nullptr;
        bool executable = false;
        EvaluateExpression(
            [products](const QString& operand, bool& installed) {
                return ProductInstalledLeaf(products, operand, installed);
            },
            fields.RequiredProducts, executable);
        if (value.compare(QLatin1String("false"), Qt::CaseInsensitive) == 0)
            return !executable;
        return executable;
    }
    if (is(QueryKeys::IsTemplate))
        return QVariant(value).toBool() == fields.IsTemplate;
    if (is(QueryKeys::PrimaryProduct))
        return ListHasMatchingId(fields.PrimaryProduct, value);
    if (is(QueryKeys::TargetProduct))
        return ListHasMatchingId(fields.TargetProduct, value);
    if (is(QueryKeys::RequiredProduct))
        return ListHasMatchingId(fields.RequiredProducts, value);
    return false;
}

} // namespace Velmora::WorkflowCore
