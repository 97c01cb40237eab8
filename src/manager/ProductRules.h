// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

// The workflow filter predicate of the list models and the catalogue's filtered iteration:
// executability through the required-products expression, the template flag and product ids.
namespace Velmora::WorkflowCore {

class ProductCatalog;
class Workflow;

// The leaf of executability: always evaluable; true when any product of the operand's
// ","-separated ids is installed, as products knows them (none when products is null).
bool ProductInstalledLeaf(const ProductCatalog* products, const QString& operand, bool& value);

// Whether a filter's product id names the workflow's: codes equal (case matters), and when both
// carry a version, the hub's version rule with the filter's version first.
bool ProductIdMatches(const QString& filterId, const QString& workflowProductId);

// Keys "IsExecutable", "IsTemplate", "PrimaryProduct", "TargetProduct", "RequiredProduct" in any
// letter case; any other key never matches. Installed products are those of the workflow's catalogue.
bool WorkflowMatchesFilter(Workflow* workflow, const QString& key, const QString& value);

} // namespace Velmora::WorkflowCore
