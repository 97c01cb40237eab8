// SPDX-License-Identifier: MIT
#pragma once

#include <QMap>
#include <QString>

namespace Velmora::WorkflowCore {

// Keys are unique and compare exactly; the map keeps them ordered.
class WorkflowArgumentsImp
{
public:
    QMap<QString, QString> values;
};

} // namespace Velmora::WorkflowCore
