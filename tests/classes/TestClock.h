// Moves the tick count of the whole process on.
#pragma once

void AdvanceClock(unsigned milliseconds);
