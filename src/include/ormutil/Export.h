// Marks what libormutil exports. Everything else is hidden.
#pragma once

#define ORMUTIL_API __attribute__((visibility("default")))
