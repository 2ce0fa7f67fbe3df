// What an operation returns to a caller whose arguments it cannot take, with the message that says which.
#pragma once

#include "common/Trace.h"
#include "quorvel/NetCM.h"

#define QV_INVALID(...) (QV_TRACE(5, __VA_ARGS__), static_cast<uint32_t>(NETCM_ERR_INVALID_PARAM))
