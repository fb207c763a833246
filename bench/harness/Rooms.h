// The rooms that add rows.
#pragma once

#include "Bench.h"

void AddTraceRows(bench::Table& table);
