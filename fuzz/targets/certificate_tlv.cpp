// Fuzz target: certificate.cpp with a mutator that parses the input into BER elements (X.690 8.1),
// changes one of them and encodes all again. The lengths of the enclosing elements then fit, so the
// reader reaches the changed element.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace {

struct Node {
  unsigned char tag = 0;
  std::string before;          // octets before the children: the initial octet of a BIT STRING
  std::string contents;        // empty if there are children
  std::vector<Node> children;  // of a constructed element, or of a string that contains elements
};

const int kMaxDepth = 24;

// Appends the elements of `octets` to `*out`. Returns false if they are not a sequence of elements.
bool ParseNodes(std::string octets, int depth, std::vector<Node>* out) {
  std::size_t at = 0;
  while (at < octets.size()) {
    Node node;
    node.tag = static_cast<unsigned char>(octets[at++]);
    if ((node.tag & 0x1f) == 0x1f || at == octets.size())
      return false;
    std::size_t length = static_cast<unsigned char>(octets[at++]);
    if (length >= 0x80) {
      std::size_t num_octets = length & 0x7f;
      length = 0;
      if (num_octets == 0 || num_octets > 4 || num_octets > octets.size() - at)
        return false;
      for (; num_octets > 0; --num_octets)
        length = length << 8 | static_cast<unsigned char>(octets[at++]);
    }
    if (length > octets.size() - at)
      return false;
    std::string contents = octets.substr(at, length);
    at += length;

    const bool bits = node.tag == 0x03 && !contents.empty() && contents[0] == '\0';
    const bool may_contain_elements = (node.tag & 0x20) != 0 || node.tag == 0x04 || bits;
    const std::size_t num_before = bits ? 1 : 0;
    if (depth < kMaxDepth && may_contain_elements && contents.size() > num_before &&
        ParseNodes(contents.substr(num_before), depth + 1, &node.children)) {
      node.before = contents.substr(0, num_before);
    } else {
      node.children.clear();
      node.contents = std::move(contents);
    }
    out->push_back(std::move(node));
  }
  return true;
}

std::string Encode(const std::vector<Node>& nodes) {
  std::string octets;
  for (const Node& node : nodes) {
    const std::string contents = node.before + node.contents + Encode(node.children);
    octets += static_cast<char>(node.tag);
    std::string length;
    for (std::size_t rest = contents.size(); rest != 0; rest >>= 8)
      length.insert(length.begin(), static_cast<char>(rest & 0xff));
    if (contents.size() >= 0x80)
      octets += static_cast<char>(0x80 | length.size());
    else if (length.empty())
      octets += '\0';
    octets += length + contents;
  }
  return octets;
}

// Collects every list of siblings in the tree.
void CollectLists(std::vector<Node>* list, std::vector<std::vector<Node>*>* out) {
  if (!list->empty())
    out->push_back(list);
  for (Node& node : *list)
    CollectLists(&node.children, out);
}

class Mutator {
 public:
  explicit Mutator(unsigned seed) : random_(seed) {}

  void Change(std::vector<Node>* roots, std::size_t max_size) {
    std::vector<std::vector<Node>*> lists;
    CollectLists(roots, &lists);
    if (lists.empty())
      return;
    std::vector<Node>& list = *lists[Below(lists.size())];
    const std::size_t at = Below(list.size());
    const std::vector<Node>& other_list = *lists[Below(lists.size())];
    const Node other = other_list[Below(other_list.size())];
    const auto place = list.begin() + static_cast<std::ptrdiff_t>(at);
    switch (Below(10)) {
      case 0:
        list.erase(place);
        break;
      case 1:
        list.insert(place, Node(list[at]));
        break;
      case 2:
        std::swap(list[at], list[Below(list.size())]);
        break;
      case 3:
        list[at] = other;
        break;
      case 4:
        list.insert(place, other);
        break;
      case 5:
        list[at].tag = kTags[Below(sizeof kTags)];
        break;
      case 6: {
        Node wrapper;
        wrapper.tag = kTags[Below(sizeof kTags)];
        wrapper.children.push_back(list[at]);
        list[at] = std::move(wrapper);
        break;
      }
      default:
        ChangeContents(&list[at], max_size);
    }
  }

 private:
  static constexpr unsigned char kTags[] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x0a,
                                            0x0c, 0x10, 0x11, 0x12, 0x13, 0x14, 0x16, 0x17,
                                            0x18, 0x1a, 0x1c, 0x1e, 0x22, 0x23, 0x24, 0x2c,
                                            0x30, 0x31, 0x81, 0x82, 0xa0, 0xa1, 0xa2, 0xa3};

  std::size_t Below(std::size_t bound) { return random_() % bound; }

  void ChangeContents(Node* node, std::size_t max_size) {
    std::string contents = node->before + node->contents + Encode(node->children);
    const std::size_t size = contents.size();
    contents.resize(std::min(size + 64, max_size));
    const std::size_t new_size = LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(&contents[0]),
                                                  std::min(size, contents.size()), contents.size());
    contents.resize(new_size);
    node->before.clear();
    node->children.clear();
    node->contents = std::move(contents);
  }

  std::minstd_rand random_;
};

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t max_size, unsigned seed) {
  std::vector<Node> roots;
  // Sometimes changes the octets directly, to create headers and lengths that Encode() never
  // writes.
  if (seed % 8 == 0 || !ParseNodes(std::string(reinterpret_cast<char*>(data), size), 0, &roots))
    return LLVMFuzzerMutate(data, size, max_size);
  Mutator(seed).Change(&roots, max_size);
  const std::string changed = Encode(roots);
  if (changed.size() > max_size || changed.empty())
    return LLVMFuzzerMutate(data, size, max_size);
  std::memcpy(data, changed.data(), changed.size());
  return changed.size();
}
