#include "window/FileInfoPlace.h"

#include <wx/filename.h>
#include <wx/log.h>
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

// Group members are let be: with a group for each user, as is usual, there are none.
bool IsOwn(const struct stat& found)
{
    return found.st_uid == geteuid() && (found.st_mode & S_IWOTH) == 0;
}

// Returns the program's directory in parent, made if need be; empty when the user alone cannot have
// it.
wxString MakeOwnDirectory(const wxString& parent)
{
    const std::string path = (parent + "/kestrel").utf8_string();
    struct stat found;
    if (!wxIsAbsolutePath(parent) || stat(parent.utf8_string().c_str(), &found) != 0 ||
        !IsOwn(found))
        return wxString();
    mkdir(path.c_str(), S_IRWXU);
    const bool usable = lstat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode) &&
                        IsOwn(found) && access(path.c_str(), W_OK | X_OK) == 0;
    return usable ? wxString::FromUTF8(path + "/") : wxString();
}

} // namespace

bool FileInfoPlace::TakeTurn()
{
    const std::string path = (GetOwnDirectory() + "lock").utf8_string();
    if (m_isOfRun)
        return true;
    m_lock.Attach(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
    if (m_lock.IsOpened() && flock(m_lock.fd(), LOCK_EX | LOCK_NB) == 0)
        return true;
    const bool held = m_lock.IsOpened() && errno == EWOULDBLOCK;
    m_lock.Close();
    if (!held)
        MakeDirectoryOfRun();
    return !held;
}

void FileInfoPlace::EndTurn()
{
    m_lock.Close();
}

bool FileInfoPlace::IsSafe(const wxString& path) const
{
    if (!m_ownDirectory.empty() && path.StartsWith(m_ownDirectory))
        return true;
    struct stat found;
    const std::string directory = wxFileName(path).GetPath().utf8_string();
    // Where the sticky bit is set, a file can be replaced only by its owner and the directory's.
    if (m_isOfRun ||
        (stat(directory.c_str(), &found) == 0 && !IsOwn(found) &&
         ((found.st_uid != 0 && found.st_uid != geteuid()) || (found.st_mode & S_ISVTX) == 0)))
        return false;
    if (lstat(path.utf8_string().c_str(), &found) != 0)
        return true;
    return S_ISREG(found.st_mode) && IsOwn(found) && found.st_nlink == 1;
}

wxString FileInfoPlace::GetOwnDirectory()
{
    if (!m_ownDirectory.empty() || m_isOfRun)
        return m_ownDirectory;
    wxString runtime;
    if (wxGetEnv("XDG_RUNTIME_DIR", &runtime))
        m_ownDirectory = MakeOwnDirectory(runtime);
    if (m_ownDirectory.empty())
    {
        wxString cache;
        if (!wxGetEnv("XDG_CACHE_HOME", &cache) || !wxIsAbsolutePath(cache))
            cache = wxGetHomeDir() + "/.cache";
        mkdir(cache.utf8_string().c_str(), S_IRWXU);
        m_ownDirectory = MakeOwnDirectory(cache);
    }
    if (m_ownDirectory.empty())
        MakeDirectoryOfRun();
    return m_ownDirectory;
}

void FileInfoPlace::MakeDirectoryOfRun()
{
    m_isOfRun = true;
    m_ownDirectory.clear();
    std::string path = (wxFileName::GetTempDir() + "/kestrel-XXXXXX").utf8_string();
    if (mkdtemp(&path[0]))
        m_ownDirectory = wxString::FromUTF8(path + "/");
    else
        wxLogSysError("No directory for the file information can be made");
}
