#pragma once

#include <gst/gst.h>

#include <memory>
#include <string>

/// GStreamer's objects with owners.
namespace receiver::gst {

struct Unref {
  void operator()(void* object) const { gst_object_unref(object); }
};
using Element = std::unique_ptr<GstElement, Unref>;

/// Prepares GStreamer, once in the process. False when that fails.
inline bool prepare() {
  static const bool isReady = gst_init_check(nullptr, nullptr, nullptr) != 0;
  return isReady;
}

/// A new reference to a named element of a bin, null where there is none.
inline Element find(const Element& bin, const char* name) {
  return Element(gst_bin_get_by_name(GST_BIN(bin.get()), name));
}

/// A bin from a description, with its free ends as pads; null when an element is missing.
inline Element parseBin(const std::string& description) {
  GError* error = nullptr;
  Element bin(gst_parse_bin_from_description(description.c_str(), 1, &error));
  if (error != nullptr) {
    g_error_free(error);
    return nullptr;
  }
  gst_object_ref_sink(bin.get());
  return bin;
}

}  // namespace receiver::gst
