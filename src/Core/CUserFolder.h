#pragma once

#include "Core/CString.h"

namespace qel {

// Where the product keeps files of the user: "<home>/.config/", with the home folder taken
// from the password database (the system reads no environment variables). Tests point it
// elsewhere with setRoot, so that they never touch the real folder.
class CUserFolder
{
public:
    // With the trailing '/'; empty when no home folder is known.
    static CString path();
    // An empty root goes back to the default. Any thread; takes effect for later calls.
    static void setRoot(const CString& root);
    // Creates the folder and its parents when missing; false when that fails.
    static bool ensureFolder(const CString& folder);
};

} // namespace qel
