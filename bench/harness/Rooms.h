// The rooms that add rows, and what their helper processes do.
#pragma once

#include <string>

#include "Bench.h"

void AddBaseRows(bench::Table& table);
void AddClassRows(bench::Table& table);
void AddDrawingRows(bench::Table& table);
void AddFaceRows(bench::Table& table);
void AddKernelRows(bench::Table& table);
void AddPropertyRows(bench::Table& table);
void AddRegistryRows(bench::Table& table);
void AddThreadRows(bench::Table& table);
void AddTraceRows(bench::Table& table);

// A row that needs another process starts this program again as `--partner KIND`; the room that did runs the
// work for the first kind that is its own and says so.
bool RunClassPartner(const std::string& kind);
bool RunTracePartner(const std::string& kind);
