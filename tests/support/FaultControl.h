#pragma once

#include <array>
#include <atomic>
#include <cstdint>

/// What a test and the library that is preloaded into the service and its children share in a file.
struct FaultControl
{
    enum Class { OpenForReading, OpenForWriting, Read, Write, Sync, Rename, Remove, MakeDirectory, Connect };

    std::array<char, 256> root;             ///< calls count that concern what lies below
    std::array<std::atomic<int>, 9> counts; ///< calls so far, of all processes, by class
    std::atomic<int> at;                    ///< number of the call that is struck; 0 none
    int kind;                               ///< its class
    int error; ///< that it fails with, negated: and all after it; 0: the service is killed at it
    static constexpr int stops = 1000; ///< as error: nothing fails, and the service is stopped at it
    std::atomic<int> service;          ///< process ID
    std::array<char, 256> journal;     ///< file that changes are recorded in; may be empty
};

/// The head of a recorded change; two texts of these lengths follow.
struct FaultEvent
{
    enum Kind {
        Created,
        Linked,
        Written,
        Cut,
        Moved,
        Exchanged,
        Removed,
        FileSynced,
        DirectorySynced,
        AllSynced
    };

    Kind kind;
    std::uint32_t firstSize; ///< of the name
    std::uint32_t
        secondSize; ///< of another name, or of the bytes written; a new file without a name has one, too
    std::uint64_t inode;
    std::int64_t offset; ///< of the bytes written, or where the file was cut
};
