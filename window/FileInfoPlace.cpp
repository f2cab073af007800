#include "window/FileInfoPlace.h"

#include <wx/filename.h>
#include <wx/stdpaths.h>
#include <wx/utils.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// Returns whether only the user and root can replace the user's files in the directory. If others
// can write to it, the sticky bit protects each owner's files.
bool IsSafe(const wxString& directory)
{
    struct stat found;
    if (stat(directory.fn_str(), &found) != 0)
        return false;
    const bool isShared = (found.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if ((found.st_uid == 0 || found.st_uid == geteuid()) &&
        (!isShared || (found.st_mode & S_ISVTX) != 0))
        return true;
    errno = EPERM;
    return false;
}

// Returns whether the file is the one at the path, regular, and the user's own.
bool IsOwn(const wxFile& file, const wxString& path, struct stat& found)
{
    struct stat named;
    return fstat(file.fd(), &found) == 0 && lstat(path.fn_str(), &named) == 0 &&
           found.st_dev == named.st_dev && found.st_ino == named.st_ino && S_ISREG(found.st_mode) &&
           found.st_uid == geteuid();
}

// Locks the file. Returns false if another run has locked or replaced it since it was opened.
bool Lock(const wxFile& file, const wxString& path)
{
    struct stat found;
    return flock(file.fd(), LOCK_EX | LOCK_NB) == 0 && IsOwn(file, path, found);
}

} // namespace

wxString FileInfoPlace::Take(const wxString& directory)
{
    Release();
    if (TakeShared(directory) || TakeOwn(directory))
        return m_path;
    m_error = errno;

    const wxString runtime(wxGetenv("XDG_RUNTIME_DIR"));
    const wxString cache = wxStandardPaths::Get().GetUserDir(wxStandardPaths::Dir_Cache);
    mkdir(cache.fn_str(), S_IRWXU); // a new user may not have it yet
    return TakeOwn(runtime) || TakeOwn(cache) ? m_path : wxString();
}

wxString FileInfoPlace::GetIntactFile() const
{
    struct stat found;
    const bool intact = IsOwn(m_file, m_path, found) && found.st_nlink == 1 &&
                        (found.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    return intact ? wxString::Format("/proc/self/fd/%d", m_file.fd()) : wxString();
}

void FileInfoPlace::Release()
{
    if (m_file.IsOpened())
        m_file.Close();
    if (!m_ownDirectory.empty())
    {
        unlink(m_path.fn_str());
        rmdir(m_ownDirectory.fn_str());
    }
    m_ownDirectory.clear();
    m_path.clear();
}

bool FileInfoPlace::TakeShared(const wxString& directory)
{
    const wxString path = directory + FILE_NAME;
    if (!IsSafe(directory))
        return false;
    // Only a run that holds the lock of the file at the path may replace it.
    const wxFile former(open(path.fn_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (former.IsOpened() && Lock(former, path))
        unlink(path.fn_str());
    if (Create(path) && Lock(m_file, path))
        return true;
    Release();
    return false;
}

bool FileInfoPlace::TakeOwn(const wxString& parent)
{
    std::string path((parent + "/kestrel-XXXXXX").fn_str());
    if (!wxIsAbsolutePath(parent) || !IsSafe(parent) || !mkdtemp(&path[0]))
        return false;
    chmod(path.c_str(), S_IRWXU); // the umask may have removed permissions
    m_ownDirectory = wxString(path.c_str(), *wxConvFileName) + "/";
    if (Create(m_ownDirectory + FILE_NAME))
        return true;
    const int error = errno;
    Release();
    errno = error;
    return false;
}

bool FileInfoPlace::Create(const wxString& path)
{
    m_path = path;
    const int file = open(path.fn_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file < 0)
        return false;
    m_file.Attach(file);
    // The umask may have removed permissions.
    return fchmod(file, S_IRUSR | S_IWUSR) == 0;
}
