// The tool's own name. Crashes of the tool are reported under it, and the
// uploader refuses every report whose name begins with it.
#pragma once

inline constexpr char16_t ApplicationName[] = u"Marlowen Crash Report Uploader";
