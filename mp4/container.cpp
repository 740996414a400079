#include "mp4/container.h"

#include <algorithm>

#include "mp4/header_boxes.h"

namespace MP4 {

Container::~Container() = default;

void Container::forget() {
    mdat_ = nullptr;
    moov_ = nullptr;
    videoTrack_ = nullptr;
}

bool Container::attach(const std::wstring& path, uint64_t end) {
    path_ = path;
    BinFile file(path_, 'r');
    if (!file.isOpen()) {
        forget();
        root_.reset();
        return false;
    }
    parse(file, end);
    return true;
}

void Container::parse(BinFile& file, uint64_t end) {
    forget();
    root_.reset();
    root_ = std::make_unique<ROOT>(std::min(end, file.length()));
    file.seek(0);
    root_->parseBox(file, end);

    for (auto& child : root_->children) {
        if (mdat_ == nullptr && child->isType(fourcc("mdat"))) mdat_ = child.get();
        if (moov_ == nullptr && child->isType(fourcc("moov"))) moov_ = child.get();
    }
    root_->find("moov.trak", [this](BOX& trak) {
        static_cast<NestedBox&>(trak).find("tkhd", [this, &trak](BOX& box) {
            const auto* tkhd = dynamic_cast<TKHD*>(&box);
            if (tkhd != nullptr && tkhd->width >= 1) videoTrack_ = &trak;
            return true;
        });
        return true;
    });
}

void Container::dump(const DumpLine& out) const {
    if (root_) root_->dump(out);
}

void Container::find(const char* path, const BoxCallback& fn) {
    if (root_) root_->find(path, fn);
}

void Container::if_not_found(const char* path, const std::function<void()>& fn) {
    if (root_) {
        root_->if_not_found(path, fn);
    } else {
        fn();
    }
}

}  // namespace MP4
