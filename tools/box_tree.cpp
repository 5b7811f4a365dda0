// Walks box headers in the file's bytes and the library's tree side by side. Identifiers are what
// pairs them: the library numbers headers in the order in which they stand in the file, a container
// before its content, and spends a number on a header also when it refuses the box.
#include "box_tree.h"

#include <algorithm>
#include <optional>

#include "failure.h"

namespace kvjpx_tool {
namespace {

struct Header {
  uint32_t type;
  uint64_t begin;
  uint64_t content_begin;
  uint64_t end;
};

// Reads the header at `position` of a container whose content ends at `limit`.
std::optional<Header> read_header(std::string_view bytes, uint64_t position, uint64_t limit) {
  if (limit - position < 8) return std::nullopt;
  const uint64_t short_length = big_endian(bytes, position, 4);
  const bool has_long_length = short_length == 1;
  if (has_long_length && limit - position < 16) return std::nullopt;

  Header header;
  header.type = static_cast<uint32_t>(big_endian(bytes, position + 4, 4));
  header.begin = position;
  header.content_begin = position + (has_long_length ? 16 : 8);
  uint64_t length = has_long_length ? big_endian(bytes, position + 8, 8) : short_length;
  if (short_length == 0) length = bytes.size() - position;
  if (length > limit - position) return std::nullopt;
  // A length that does not even cover the header stands for an empty box.
  header.end = std::max(header.content_begin, position + length);
  return header;
}

class TreeReader {
 public:
  TreeReader(kv_jpx_context* context, std::string_view bytes, const std::string& label,
             BoxTree& tree)
      : context_(context), bytes_(bytes), label_(label), tree_(tree) {}

  void read() {
    tree_.root.end = bytes_.size();
    read_children(tree_.root, 0, bytes_.size());
  }

 private:
  // Returns where the library went on behind the container: its end, or, when a box was refused,
  // the end of that box, from where the enclosing container takes over.
  uint64_t read_children(Box& container, uint64_t position, uint64_t limit) {
    const std::vector<uint32_t> expected = child_ids(context_, container.id);
    while (position < limit) {
      const std::optional<Header> header = read_header(bytes_, position, limit);
      if (!header) break;
      const auto id = static_cast<uint32_t>(tree_.boxes_by_id.size());
      const size_t known = container.children.size();
      if (known == expected.size() || id != expected[known]) {
        tree_.refused.push_back({&container, header->type, header->begin});
        tree_.boxes_by_id.push_back(nullptr);
        limit = position = header->end;
        break;
      }
      Box& child = append(container, id, *header);
      position = header->end;
      if (child.is_container) {
        const uint64_t content =
            std::min(header->content_begin + prefix_length(child.type), header->end);
        position = read_children(child, content, header->end);
      }
    }
    if (position != limit || container.children.size() != expected.size()) {
      throw Failure(kNotJpx, label_ + ": the boxes behind offset " + std::to_string(position) +
                                 " cannot be located");
    }
    number_siblings(container);
    return position;
  }

  Box& append(Box& container, uint32_t id, const Header& header) {
    auto box = std::make_unique<Box>();
    box->id = id;
    box->type = header.type;
    box->is_container = is_container(context_, id);
    box->begin = header.begin;
    box->content_begin = header.content_begin;
    box->end = header.end;
    box->parent = &container;
    tree_.boxes_by_id.push_back(box.get());
    container.children.push_back(std::move(box));
    return *container.children.back();
  }

  static void number_siblings(Box& container) {
    std::vector<Box*> sorted;
    for (const auto& child : container.children) sorted.push_back(child.get());
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Box* a, const Box* b) { return a->type < b->type; });
    for (auto first = sorted.begin(); first != sorted.end();) {
      const uint32_t type = (*first)->type;
      const auto last =
          std::find_if(first, sorted.end(), [&](const Box* box) { return box->type != type; });
      for (auto box = first; box != last; ++box) {
        (*box)->index = static_cast<uint32_t>(box - first);
        (*box)->same_type_count = static_cast<uint32_t>(last - first);
      }
      first = last;
    }
    container.children_by_type.assign(sorted.begin(), sorted.end());
  }

  kv_jpx_context* context_;
  std::string_view bytes_;
  const std::string& label_;
  BoxTree& tree_;
};

}  // namespace

const Box* Box::find_child(uint32_t child_type, uint64_t child_index) const {
  const auto first =
      std::lower_bound(children_by_type.begin(), children_by_type.end(), child_type,
                       [](const Box* box, uint32_t wanted) { return box->type < wanted; });
  if (first == children_by_type.end() || (*first)->type != child_type) return nullptr;
  return child_index < (*first)->same_type_count ? first[static_cast<ptrdiff_t>(child_index)]
                                                 : nullptr;
}

void for_each_box(const Box& box, const std::function<void(const Box&)>& visit) {
  for (const auto& child : box.children) {
    visit(*child);
    for_each_box(*child, visit);
  }
}

std::vector<uint32_t> child_ids(kv_jpx_context* context, uint32_t container) {
  std::vector<uint32_t> ids;
  uint32_t id = KV_JPX_ROOT;
  int32_t code = kv_jpx_get_first_child_box_id(context, container, &id);
  while (code == JPX_OK && id != KV_JPX_ROOT) {
    ids.push_back(id);
    code = kv_jpx_get_next_box_id(context, id, &id);
  }
  return ids;
}

bool is_container(kv_jpx_context* context, uint32_t id) {
  uint8_t flag = 0;
  return kv_jpx_is_box_super(context, id, &flag) == JPX_OK && flag != 0;
}

uint64_t prefix_length(uint32_t type) {
  if (type == KV_JPX_TYPE('c', 'r', 'e', 'f')) return 4;
  if (type == KV_JPX_TYPE('d', 't', 'b', 'l')) return 2;
  return 0;
}

uint64_t big_endian(std::string_view bytes, uint64_t position, unsigned width) {
  uint64_t value = 0;
  for (unsigned i = 0; i < width; ++i) {
    value = value << 8 | static_cast<unsigned char>(bytes[position + i]);
  }
  return value;
}

std::unique_ptr<BoxTree> read_box_tree(kv_jpx_context* context, std::string_view bytes,
                                       const std::string& label) {
  auto tree = std::make_unique<BoxTree>();
  TreeReader(context, bytes, label, *tree).read();
  return tree;
}

}  // namespace kvjpx_tool
