#include "window/NameText.h"

#include <wx/control.h>
#include <wx/dcclient.h>
#include <wx/gdicmn.h>
#include <wx/uri.h>

#include <gtk/gtk.h>

#include <algorithm>

namespace
{

constexpr size_t LENGTH_LIMIT = 1000; // in characters

// Returns the URL with another host in place of an IPv6 literal, after which wxURI finds no path.
// The host follows "//" at the start of the URL or directly after its scheme.
wxString WithPlainHost(const wxString& url)
{
    const size_t colon = url.find_first_of(":/?#");
    const size_t start = colon != wxString::npos && url[colon] == ':' ? colon + 1 : 0;
    if (url.compare(start, 2, "//") != 0)
        return url;
    const size_t host = start + 2;
    const size_t path = std::min(url.find_first_of("/?#", host), url.length());
    if (url.find('[', host) >= path)
        return url;
    return url.Left(host) + "host" + url.Mid(path);
}

} // namespace

const wxString& GetLastSegment(const wxString& url)
{
    // All the reports of a download ask for the same name.
    static wxString lastUrl, lastName;
    if (url != lastUrl)
    {
        lastUrl = url;
        lastName = wxURI(WithPlainHost(url)).GetPath().AfterLast('/');
    }
    return lastName;
}

wxString BoundText(const wxString& text)
{
    if (text.length() <= LENGTH_LIMIT)
        return text;
    return text.Left(LENGTH_LIMIT / 2) + "..." + text.Right(LENGTH_LIMIT / 2);
}

wxRect GetWorkArea(const wxWindow* window)
{
    // A window that was never shown has no window in GDK either.
    GdkWindow* const drawn = gtk_widget_get_window(window->GetHandle());
    GdkMonitor* const monitor =
        drawn ? gdk_display_get_monitor_at_window(gdk_window_get_display(drawn), drawn) : nullptr;
    if (!monitor)
        return wxRect(wxGetDisplaySize());
    GdkRectangle area;
    gdk_monitor_get_workarea(monitor, &area);
    return wxRect(area.x, area.y, area.width, area.height);
}

wxString ShortenForBox(const wxString& text, wxWindow* window)
{
    const wxClientDC dc(window);
    return wxControl::Ellipsize(BoundText(text), dc, wxELLIPSIZE_MIDDLE,
                                GetWorkArea(window).width / 2, wxELLIPSIZE_FLAGS_NONE);
}
