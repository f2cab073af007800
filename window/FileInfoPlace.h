// Keeps the file information of one run apart from other runs and from other users.
//
// All runs of a user download it to the same path, which is moreover predictable and lies in a
// directory that other users share. So runs take turns, by an advisory lock (flock(2)) that the
// system releases when a process dies; and a path where something lies that others could have put
// there, or could change, is given up for a directory of the user's own. Main thread only.

#pragma once

#include <wx/file.h>

class FileInfoPlace
{
public:
    // Tries to take this run's turn, which lasts until EndTurn() or the object's end; returns at
    // once whether it was taken. Where no lock can be had for other reasons than another run's
    // turn, the run needs none: it gets a directory that no other run uses.
    bool TakeTurn();
    void EndTurn();

    // Whether the file at path can be written and believed: during this run's turn nobody but the
    // user can have put it there or can change it. So it must be a regular file of the user's own
    // and no link, or none at all, in a directory whose files others cannot replace. Only after
    // TakeTurn().
    bool IsSafe(const wxString& path) const;

    // Returns the directory to use instead, ending with the separator, which only the user has
    // access to: in XDG_RUNTIME_DIR, else in the user's cache directory, else a new one among the
    // temporary files. Empty when none could be made; the log then has the reason.
    wxString GetOwnDirectory();

private:
    void MakeDirectoryOfRun();

    wxString m_ownDirectory;
    bool m_isOfRun = false; // m_ownDirectory is used by no other run
    wxFile m_lock;          // open while it is this run's turn
};
