#pragma once

/// The first two arguments of every trace line: where it was written.
#define L2CP_TRACE_SITE "l2cp", __LINE__
