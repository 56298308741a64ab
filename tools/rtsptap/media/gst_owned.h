// What is GStreamer's and released with its holder.
#pragma once

#include <gst/gst.h>

#include <memory>

namespace tool {

struct UnrefObject {
    void operator()(void *object) const { gst_object_unref(object); }
};
template <typename Object> using GstOwned = std::unique_ptr<Object, UnrefObject>;

struct UnrefMini {
    void operator()(void *object) const { gst_mini_object_unref(GST_MINI_OBJECT_CAST(object)); }
};
template <typename Object> using GstMini = std::unique_ptr<Object, UnrefMini>;

} // namespace tool
