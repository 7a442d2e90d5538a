// Everything of the host's exporter interface, in one include.
#pragma once

#include "prsdk/export_param_suite.h"
#include "prsdk/export_records.h"
#include "prsdk/export_suites.h"
#include "prsdk/render_suites.h"
#include "prsdk/sdk_types.h"
#include "prsdk/sp_basic_suite.h"
