// Gives each run a file of its own for the file information, which nobody else can change.
//
// All runs of all users download it to the same path in a directory that they share. So this class
// creates the file itself, new and for the user alone, and holds an advisory lock (flock(2)) on it,
// which the system releases when the process dies. A run that finds the path locked by another one,
// or taken by another user, or in a directory where others can replace files, does not wait: it
// makes a directory of its own at once.
//
// Main thread only.

#pragma once

#include <wx/file.h>

class FileInfoPlace
{
public:
    static constexpr const char* FILE_NAME = "nvrFileInfo.txt";

    ~FileInfoPlace() { Release(); }

    // Creates the file, empty, in a directory whose name ends with the separator, or in a directory
    // of the run's own. Returns its path; empty when neither can be made.
    wxString Take(const wxString& directory);

    // Why Take() returned no path, as errno(3).
    int GetError() const { return m_error; }

    // Returns whether the file at the path is still the one that Take() created, and has stayed the
    // user's alone.
    bool IsIntact() const;

    // Lets other runs have the path; the next one creates a new file there. Removes a directory of
    // the run's own, with its file. To be called when nothing writes to the path any more, or when
    // what still writes has opened the file.
    void Release();

private:
    bool TakeShared(const wxString& directory);
    bool TakeOwn(const wxString& parent);
    bool Create(const wxString& path);

    wxString m_path;
    wxString m_ownDirectory; // empty in a directory that other runs use too
    wxFile m_file;
    int m_error = 0;
};
