#pragma once

#include "Core/CObject.h"
#include "Core/CUpdateNotifier.h"

#include <vector>

namespace qel {

class CAudioExtParamHostBridge;
class CAudioParam;
class CAudioParamCollector;

// A parameter element offered to the host (tag audio:ext-param): it turns the host's
// normalised positions into changes and reports changes from elsewhere back to the host.
class CAudioExtParam : public CObject, public CUpdateListener
{
public:
    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }
    ~CAudioExtParam() override;
    CErrorPtr init() override;
    void releaseLinks() override;

    const CString& extName() const { return m_extName; }
    CAudioParam* param() const { return m_param; }
    int32_t group() const { return m_group; }
    int32_t elementIndex() const { return m_element; }

    // Set by the wrapper; the index is the position in the host's list.
    void setHostBridge(CAudioExtParamHostBridge* bridge, int index);

    // Host or MIDI: clamps to 0..1 and writes the element.
    void setNormalized(double norm);
    // 0.5 without a definition.
    double getNormalized();
    void getLabel(CString& out);
    void normToText(CString& out, double norm);
    double textToNorm(const CString& text);

    void onUpdate(const CUpdateMessage* message) override;

private:
    double currentNorm();

    CAudioParamCollector* m_collector = nullptr;
    CAudioParam* m_param = nullptr;
    CString m_extName;
    int32_t m_group = 0;
    int32_t m_element = 0;
    CAudioExtParamHostBridge* m_hostBridge = nullptr;
    int m_hostIndex = -1;
    double m_normValue = -1.0;
};

// The host-visible parameters in order (tag audio:ext-param-list): the position in this
// list is the host's index.
class CAudioExtParamList : public CObject
{
public:
    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }
    void onChildAdded(CObject* child) override;
    void removeChild(CObject* child) override;

    int count() const { return int(m_params.size()); }
    CAudioExtParam* at(int index) const { return m_params[size_t(index)]; }

private:
    std::vector<CAudioExtParam*> m_params;
};

} // namespace qel
