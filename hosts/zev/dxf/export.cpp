// Export: the rows of a drawing, in the order of its layout, once they have proved to be those that
// were imported.
#include "dxf/content.hpp"
#include "dxf/drawing.hpp"

namespace dxf {

void export_drawing(Repository *repository, Drawing *drawing, const std::string &name,
                    const Notify *notify, const std::function<void(std::string_view)> &write,
                    Form form) {
    const Contents contents(repository, {Keys(drawing)}, name, notify);
    write_file(contents[0], name, write, form);
}

} // namespace dxf
