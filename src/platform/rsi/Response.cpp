#include "rsi/Response.h"

namespace qel::rsi::client {

qel::dataformats::data::Value const* Response::getData(bool /*binary*/) const {
    return m_data.get();
}

}  // namespace qel::rsi::client
