// The parts that the module frame builds and tears down. Each pair lives in the source file of its family;
// nothing in this library is built by a static constructor.
#pragma once

namespace orm {

void BuildTracedObjects();  // Module.cpp
void ReportLeaksAndCloseTracedObjects();

void BuildEmptyString();  // BaseString.cpp: the block that all empty strings share
void ReleaseEmptyString();

void BuildClassManager();  // ClassManager.cpp
void CloseClassManager();

void BuildThreadRegistrar();  // ThreadInterrupt.cpp
void CloseThreadRegistrar();

}  // namespace orm
