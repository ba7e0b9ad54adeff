// Turns the one backend element that concerns a subscription item into what its listeners hear.
//
// Contract: called on the item's own queue thread with an element that lives for the call only.
#pragma once

#include "dataformats/Ref.h"

namespace qel::onlineservices::framework::core {

class IDataProcessor {
public:
    virtual ~IDataProcessor() = default;
    virtual void processData(qel::dataformats::data::Ref const& element) = 0;
};

}  // namespace qel::onlineservices::framework::core
