// SmallPicture: of a file that is imported, made while other things are written.
#pragma once

#include "dxf/drawing.hpp"

#include <future>

namespace dxf {

class SmallPicture {
  public:
    // What it is made of stays until this is gone.
    SmallPicture(const Import &request, const Document &document)
        : request_(request), document_(document) {}

    // At once or, where no thread is to be had, not at all.
    void begin() noexcept try {
        if (!request_.thumbnail || is_begun_) return;
        is_begun_ = true;
        made_ = std::async(std::launch::async, [this] { return request_.thumbnail(document_); });
    } catch (const std::exception &) {
    }
    // That of the former version would show what is no more.
    void put(Drawing *drawing) {
        begin();
        if (!made_.valid()) return;
        const std::string png = made_.get();
        host::stop_on_break(request_.notify); // for which it is broken off
        host::check(zDrawingSetThumbnail(drawing, static_cast<uint32_t>(png.size()), png.data()));
    }

  private:
    const Import &request_;
    const Document &document_;
    bool is_begun_ = false;
    std::future<std::string> made_;
};

} // namespace dxf
