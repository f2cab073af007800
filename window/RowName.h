// What the toolkit has no call for: tells a screen reader which label names a value.

#pragma once

class wxStaticText;

// Makes label the name of value, for as long as both live. Main thread only.
void NameRow(wxStaticText* label, wxStaticText* value);
