// File names as the user sees them. A name that is too long loses its middle, because its beginning
// and end say the most. Main thread only.

#pragma once

#include <wx/string.h>

class wxRect;
class wxWindow;

// Returns the last segment of the URL's path, percent-encoded as it is written; empty if the path
// is empty or ends in '/'. The reference is valid until the next call. Asking again for the same
// URL is cheap.
const wxString& GetLastSegment(const wxString& url);

// Returns the text; of a text with more than 1000 characters, only the first and last 500. No
// display shows more, and laying it out would take long.
wxString BoundText(const wxString& text);

// Returns the part that windows can use of the display that this window is on, in pixels. The
// toolkit's own call uses a list that lacks a display which was switched on a moment ago.
wxRect GetWorkArea(const wxWindow* window);

// Returns the text for a box: shortened in the middle if it is wider than half of the display that
// the window is on.
wxString ShortenForBox(const wxString& text, wxWindow* window);
