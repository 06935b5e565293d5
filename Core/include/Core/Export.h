#pragma once

/// Marks what libCore.so exports; everything else in it stays hidden.
#define CORE_API __attribute__((visibility("default")))
