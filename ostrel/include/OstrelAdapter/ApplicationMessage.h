#pragma once

#include <OstrelAdapter/MessageBase.h>
