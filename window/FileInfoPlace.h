// Gives each run a file of its own for the file information, which no other user can change.
//
// All runs of all users download it to the same path in a shared directory. So this class creates
// the file itself, new and accessible to the user alone, and holds an advisory lock (flock(2)) on
// it. The system releases the lock when the process ends. If another run has locked the file, if
// the path belongs to another user, or if others can replace files in the directory, a run does not
// wait but creates a directory of its own.
//
// Main thread only. No call blocks or opens a box.

#pragma once

#include <wx/file.h>

class FileInfoPlace
{
public:
    static constexpr const char* FILE_NAME = "nvrFileInfo.txt";

    ~FileInfoPlace() { Release(); }

    // Creates the file, empty, and returns its path. It is in the given directory, whose name ends
    // with the separator; or else in a directory of the run's own, which is created there, in
    // XDG_RUNTIME_DIR or in the user's cache directory. Returns an empty path if all of these fail.
    // Releases the file of an earlier call.
    wxString Take(const wxString& directory);

    // Returns why Take() could not use the given directory, as errno(3), if it returned no path.
    int GetError() const { return m_error; }

    // Returns a path that leads to the file that Take() created, even if somebody replaces it or
    // its directory. Empty if it is no longer the one at the path, or if others can write to it.
    wxString GetIntactFile() const;

    // Gives up the path, so that another run can create a new file there. Removes the file only if
    // it is in a directory of the run's own, together with that directory. Call it when the
    // download to the path has ended or has been cancelled.
    void Release();

private:
    bool TakeShared(const wxString& directory);
    bool TakeOwn(const wxString& parent);
    bool Create(const wxString& path);

    wxString m_path;
    wxString m_ownDirectory; // empty if the file is in the shared directory
    wxFile m_file;
    int m_error = 0;
};
