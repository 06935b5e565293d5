#pragma once

#include <cstdio>
#include <stdio_ext.h>

namespace FileSystem {

/// One thread's turn on a stream: no other thread works on the stream while it lasts. The stream
/// is open and stays open.
///
/// Also keeps the rule of ISO C 7.21.5.3 for streams that read and write: a flush or a reposition
/// separates the two directions. Neither moves the position that clients see; both may fail (on a
/// pipe), and then the operation that follows fails or succeeds by itself.
class StreamTurn
{
public:
    explicit StreamTurn(FILE* file) noexcept
        : file(file)
    {
        flockfile(file);
    }
    StreamTurn(const StreamTurn&) = delete;
    StreamTurn& operator=(const StreamTurn&) = delete;
    ~StreamTurn() { funlockfile(file); }

    void PrepareReading() noexcept
    {
        if (__freadable(file) != 0 && __fwriting(file) != 0)
            static_cast<void>(std::fflush(file));
    }

    void PrepareWriting() noexcept
    {
        if (__fwritable(file) != 0 && __freading(file) != 0)
            static_cast<void>(std::fseek(file, 0, SEEK_CUR));
    }

private:
    FILE* file;
};

} // namespace FileSystem
