#include "hpack/qtPtrLight.h"

qtPtrLightBase::m_CountAux::m_CountAux() = default;
qtPtrLightBase::m_CountAux::~m_CountAux() noexcept(false) = default;
