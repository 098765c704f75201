// What a drawing has besides what comes from a DXF file: VBA project and reference data. A host
// puts them there, and knows what they mean; a merge takes each as a whole.
#pragma once

#include "dxf/manifest.hpp"
#include "dxf/merge/rows.hpp"

namespace dxf::merging {

struct Besides {
    RawKey vba;
    std::string_view reference; // lent from the manifest that it is of
    Besides() = default;
    explicit Besides(const Manifest &manifest) : vba(manifest.vba), reference(manifest.reference) {}
    bool operator==(const Besides &) const = default;
};

// By the three-way rule; throws where both sides changed one of them, and not to the same.
Besides merge_besides(const Manifest &base, const Manifest &ours, const Manifest &theirs,
                      Rows &rows);

} // namespace dxf::merging
