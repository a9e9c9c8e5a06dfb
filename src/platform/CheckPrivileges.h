// Checks before a save that a file may be opened for reading and writing, and tells the user
// with an alert when it may not.
// Main thread only (the alert is modal).
#pragma once

// File-manager statuses that CheckPrivileges returns.
enum ENoteFileStatus : short {
    kNoteNoErr = 0,      // the file can be written
    kNoteIoErr = -36,    // any other failure
    kNoteFnfErr = -43,   // the file does not exist (a new file may be created)
    kNotePermErr = -54,  // no permission, or a read-only file system
};

// Opens path for reading and writing and closes it again, changing nothing. Returns kNoteNoErr
// on success, kNoteFnfErr without any message when the file does not exist, and otherwise
// kNotePermErr or kNoteIoErr after showing an alert (OrvOCDialog) that names the file's last
// path component. A null path returns kNoteIoErr without an alert, so that callers abandon the
// save. flag is accepted and not used (callers pass 3, read and write).
short CheckPrivileges(const char* path, signed char flag);
