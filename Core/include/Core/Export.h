#pragma once

/// Marks the exports of libCore.so; everything else in it stays hidden.
#define CORE_API __attribute__((visibility("default")))
