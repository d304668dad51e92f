// The modes of the tool that act on reports without a dialog of their own,
// and the purge that ends every run.
#pragma once

#include <cstdint>

#include "shell/wide_string.h"

// Reports larger than this, or empty, can never be uploaded.
inline constexpr std::uint32_t kLargestUsableReport = 0x6400000;  // 100 MiB

// Names that begin with this are reports of the tool itself (both of its
// own names do); a tool started on one of them does nothing, which is what
// ends the chain when the tool crashes.
inline constexpr char16_t kOwnReportPrefix[] = u"Marlowen Crash";

// Sends every pending report, whatever the settings say. 0 if at least one
// report went out, -1 otherwise, also when there was nothing to send.
int RunSendAllMode();

// Decides what becomes of the report that a crash has just left. Empty and
// own names: 0 at once. The products of IsUnattendedProduct's exceptions get
// the error dialog (value 0). Every other product is sent silently when the
// settings say send without asking: 0 on success, -1 when the upload failed;
// otherwise the report stays pending and the value is 0.
int RunSendMode(const WideString& reportName);

// productName becomes the report name up to its first "_" (all of it when
// there is none), in its own case. False for the two products that get the
// error dialog (prefix tests without case), true for every other product.
bool IsUnattendedProduct(const WideString& reportName, WideString& productName);

// Deletes every report whose pending file (.dmp or .zip) is empty or longer
// than kLargestUsableReport, with all files that share its name as a prefix.
// Each pending file is judged by itself. Failures are ignored, unlogged.
void PurgeUnusableReports();
