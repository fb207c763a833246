// The parts that the module frame builds and tears down. Each pair lives in the source file of its family;
// nothing in this library is built by a static constructor.
#pragma once

namespace orm {

void BuildTracedObjects();  // Module.cpp
void ReportLeaksAndCloseTracedObjects();
void LockTracedObjects();
void UnlockTracedObjects();

void BuildEmptyString();  // BaseString.cpp: the block that all empty strings share
void ReleaseEmptyString();

// Whether it found what it needs, memory above all; it is to be closed in any case.
bool BuildClassManager();  // ClassManager.cpp
void CloseClassManager();
void LockClassManager();
void UnlockClassManager();
void UnlockClassManagerInChild();
void LeaveClassManagerForEver();

void BuildThreadRegistrar();  // ThreadInterrupt.cpp
void CloseThreadRegistrar();
void LockThreadRegistrar();
void UnlockThreadRegistrar();

void LockPropertyOrders();  // PropertyTable.cpp
void UnlockPropertyOrders();

void LockDefaultStretch();  // Bitmap.cpp
void UnlockDefaultStretch();

}  // namespace orm
