// File names as the user sees them. A name that is too long loses its middle, because its beginning
// and end say the most. Main thread only.

#pragma once

#include <wx/string.h>

class wxRect;
class wxWindow;

// Returns the last segment of the URL's path; empty if the path is empty or ends in '/'. Escapes
// such as "%20" stay as they are, and characters that a URL cannot contain are escaped. The
// reference is valid until the next call. Asking again for the same URL is cheap.
const wxString& GetLastSegment(const wxString& url);

// Returns the text; of a text with more than 1000 characters, only the first and last 500 with
// "..." between them. No display shows more, and laying it out would take long.
wxString BoundText(const wxString& text);

// Returns the area, in pixels, that windows can use on this window's display. The toolkit's own
// call uses a list that lacks a display which was switched on a moment ago.
wxRect GetWorkArea(const wxWindow* window);

// Returns the text for a box: shortened in the middle if it is wider than half of the window's
// display.
wxString ShortenForBox(const wxString& text, wxWindow* window);
