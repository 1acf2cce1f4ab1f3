// The instance service and the JSON reader it carries: process-wide records, made on first
// use and never released.
#pragma once

#include "ox/instance.h"

OXInstanceSvc_S* oxInstanceService();  // instance.cpp
OXInstJSON_S* oxJsonReader();          // instjson.cpp
