#include "dataitems/ArrayVisitor.h"

#include "dataformats/Ref.h"

namespace qel::onlineservices::framework::core::dataitems {

void ArrayVisitor::visitArray(qel::dataformats::data::PtrVector<Value> const& elements) {
    for (auto const& element : elements) {
        m_strings.push_back(qel::dataformats::data::Ref(element.get()).asString());
    }
}

}  // namespace qel::onlineservices::framework::core::dataitems
