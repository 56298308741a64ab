#include "sdp/sdp_field.h"

#include <cstdlib>
#include <utility>

namespace rtsptap {

void ReleaseSdpFields(SDPField *&head) {
    while (head != nullptr) {
        SDPField *const field = std::exchange(head, head->next);
        free(field->value);
        delete field;
    }
}

} // namespace rtsptap
