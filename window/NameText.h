// Names of files, as they are shown. What is shortened keeps its beginning and its end, where a
// name says most. Main thread only.

#pragma once

#include <wx/string.h>

class wxRect;
class wxWindow;

// Returns the last segment of the URL's path, percent-encoded as it stands; empty when the path is
// empty or ends in '/'. Asking again for the same URL costs next to nothing.
const wxString& GetLastSegment(const wxString& url);

// Returns the text, or its beginning and end when it has so many characters that no display shows
// them all and laying them out takes its time.
wxString BoundText(const wxString& text);

// Returns the part of the display that a window can use, of the display that this one is on, in
// pixels. The toolkit's own call trusts a list that a display switched on a moment ago lacks.
wxRect GetWorkArea(const wxWindow* window);

// Returns the text as it can stand in a box: shortened in the middle when it is wider than half of
// the display that the window is on.
wxString ShortenForBox(const wxString& text, wxWindow* window);
