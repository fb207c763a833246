// Around a fork: the child finds whole whatever the parent's other threads were drawing, and no lock held by
// a thread that it does not have.
#pragma once

namespace orm::platform::gdi {

void LockStockObjects();  // Screen.cpp
void UnlockStockObjects();
void LockScreen();
void UnlockScreen();
void LockObjects();  // Object.cpp: the table and all that is in it
void UnlockObjects(bool isChild);
void LockSystemPalette();
void UnlockSystemPalette();
void LockKeptPixels();  // PixelMemory.cpp
void UnlockKeptPixels();
void LockTextLibrary();  // Typeface.cpp
void UnlockTextLibrary(bool isChild);

}  // namespace orm::platform::gdi
