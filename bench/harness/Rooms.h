// The rooms that add rows.
#pragma once

#include "Bench.h"

void AddBaseRows(bench::Table& table);
void AddClassRows(bench::Table& table);
void AddFaceRows(bench::Table& table);
void AddKernelRows(bench::Table& table);
void AddRegistryRows(bench::Table& table);
void AddThreadRows(bench::Table& table);
void AddTraceRows(bench::Table& table);

// The other process of the rows that need one: works for each count that it reads until its input ends.
void RunTracePartner(const std::string& kind);
