#pragma once

#include <array>
#include <atomic>
#include <cstdint>

/// What a test and the library that it has preloaded into the service and its children share in a file.
struct FaultControl
{
    enum Class {
        OpenForReading,
        OpenForWriting,
        Read,
        Write,
        Sync,
        Rename,
        Remove,
        MakeDirectory,
        Connect,
        classes
    };

    std::array<char, 256> root;                   ///< calls count that concern what lies below
    std::array<std::atomic<int>, classes> counts; ///< calls so far, of all processes
    std::atomic<int> at = 0;                      ///< number of the call that is struck; 0 none
    int struckClass = 0;
    int error = 0;                 ///< that it fails with; 0: the service is killed at it
    std::atomic<int> service = 0;  ///< process ID
    std::array<char, 256> journal; ///< file that changes are recorded in, see `FaultEvent`; may be empty
};

/// The head of a recorded change; two texts of these lengths follow.
struct FaultEvent
{
    enum Kind : std::uint32_t {
        Created,         ///< an inode, with a name unless it has none yet
        Linked,          ///< an inode to a name
        Written,         ///< an inode, at an offset, the second text
        Cut,             ///< an inode, to a length
        Moved,           ///< the first name to the second
        Exchanged,       ///< two names
        Removed,         ///< a name
        FileSynced,      ///< an inode
        DirectorySynced, ///< the names in a directory
        AllSynced
    };

    std::uint64_t inode;
    std::int64_t offset;
    Kind kind;
    std::uint32_t firstSize;
    std::uint32_t secondSize;
    std::uint32_t unused;
};
