#pragma once

#include "Core/CCheckedObject.h"
#include "Core/CString.h"

namespace qel {

class CAudioVizData;
struct CVizSource;

// Where the processes of an instance hand their visual data: the receiving side of the
// viz collector. The environment of a graph holds one (CAudioEnv::vizReceiver); a graph
// without one measures and drops what it measured.
class CAudioVizReceiver : public CCheckedObject
{
public:
    // Set-up thread: the source of that name, made on first request; null without memory.
    // May lock and allocate, so processes ask once, when they are made.
    virtual CVizSource* getSource(const CString& name) = 0;
    // Audio thread: one record of `source`. The receiver copies what it keeps before it
    // returns, so the caller's record can live on its stack or in its state; it must not
    // allocate or wait on a lock that a slow thread holds long.
    virtual void submit(CVizSource* source, const CAudioVizData& data) = 0;
};

} // namespace qel
