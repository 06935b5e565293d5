#pragma once

/// Marks what the module exports; `exports.map` keeps everything else hidden.
#define FILESYSTEM_API __attribute__((visibility("default")))
