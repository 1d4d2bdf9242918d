#pragma once

/// Why an archive cannot be restored. It is thrown inside the restore of an archive only.
struct ArchiveFault
{
    enum class Kind {
        Ended,       ///< the operation has to end
        Broken,      ///< no gzip, no tar, cut off, or empty
        LeadsOut,    ///< a member lies outside of the directory, or would be written through a link
        PathTooLong, ///< of a member
        TooMany,     ///< members, and directories that are made for them
        TooLarge,    ///< for the file system
        OtherDigest, ///< than the promised one
        System,      ///< a call of the system failed
    };

    Kind kind;
    int error = 0; ///< errno of a failed call
};
