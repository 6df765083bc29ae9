// SplayTree: named objects in the order of their names, letter case ignored. What was looked up
// last is found first, which suits scripts: they use the same few names again and again.
//
// T must have `name()` convertible to std::string_view that never changes while T is in a tree.
// The tree owns its objects. No operation recurses, so the shape of the tree cannot overflow the
// stack, and lookups change the shape but never the order.

#ifndef VEXA_CORE_SPLAY_TREE_H_
#define VEXA_CORE_SPLAY_TREE_H_

#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "core/text.h"

namespace vexa {

template <typename T>
class SplayTree {
 public:
  SplayTree() = default;
  ~SplayTree() { Clear(); }
  SplayTree(const SplayTree&) = delete;
  SplayTree& operator=(const SplayTree&) = delete;

  // The object of that name, or null. Stays valid until it is replaced or the tree destroyed.
  [[nodiscard]] T* Find(std::string_view name) {
    if (root_ == nullptr || Splay(name) != 0) return nullptr;
    return root_->object.get();
  }

  // Puts `object` in; one of the same name is destroyed. Returns the object in the tree.
  T* Insert(std::unique_ptr<T> object) {
    std::string_view name = object->name();
    int order = root_ == nullptr ? 0 : Splay(name);
    if (root_ != nullptr && order == 0) {
      root_->object = std::move(object);
      return root_->object.get();
    }
    auto node = std::make_unique<Node>();
    node->object = std::move(object);
    if (root_ != nullptr && order < 0) {
      node->left = std::move(root_->left);
      node->right = std::move(root_);
    } else if (root_ != nullptr) {
      node->right = std::move(root_->right);
      node->left = std::move(root_);
    }
    root_ = std::move(node);
    return root_->object.get();
  }

  // Calls `visit(T&)` for every object in the order of the names.
  template <typename Visitor>
  void ForEach(Visitor visit) const {
    std::vector<const Node*> path;
    const Node* node = root_.get();
    while (node != nullptr || !path.empty()) {
      for (; node != nullptr; node = node->left.get()) path.push_back(node);
      node = path.back();
      path.pop_back();
      visit(*node->object);
      node = node->right.get();
    }
  }

 private:
  struct Node {
    std::unique_ptr<T> object;
    std::unique_ptr<Node> left;
    std::unique_ptr<Node> right;
  };

  // Brings the node of `name`, or a neighbour, to the root (top-down splaying). Returns how `name`
  // compares with the root's name. REQUIRES: the tree is not empty.
  int Splay(std::string_view name) {
    int order = CompareIgnoreCase(name, root_->object->name());
    if (order == 0) return 0;
    std::unique_ptr<Node> smaller, larger;  // Trees of what is passed on the way down.
    std::unique_ptr<Node>* smaller_end = &smaller;
    std::unique_ptr<Node>* larger_end = &larger;
    while (order != 0) {
      std::unique_ptr<Node>& child = order < 0 ? root_->left : root_->right;
      if (child == nullptr) break;
      int next = CompareIgnoreCase(name, child->object->name());
      if ((order < 0 && next < 0) || (order > 0 && next > 0)) {
        Rotate(order < 0);
        std::unique_ptr<Node>& below = order < 0 ? root_->left : root_->right;
        if (below == nullptr) {
          order = next;
          break;
        }
        next = CompareIgnoreCase(name, below->object->name());
      }
      Link(order < 0, order < 0 ? larger_end : smaller_end);
      order = next;
    }
    *smaller_end = std::move(root_->left);
    *larger_end = std::move(root_->right);
    root_->left = std::move(smaller);
    root_->right = std::move(larger);
    return order;
  }

  // Makes the root's left (or right) child the root.
  void Rotate(bool left) {
    std::unique_ptr<Node> child = std::move(left ? root_->left : root_->right);
    if (left) {
      root_->left = std::move(child->right);
      child->right = std::move(root_);
    } else {
      root_->right = std::move(child->left);
      child->left = std::move(root_);
    }
    root_ = std::move(child);
  }

  // Hangs the root at `*end`, moves `end` on, and goes down to the root's child on that side.
  void Link(bool left, std::unique_ptr<Node>*& end) {
    std::unique_ptr<Node> child = std::move(left ? root_->left : root_->right);
    *end = std::move(root_);
    end = left ? &(*end)->left : &(*end)->right;
    root_ = std::move(child);
  }

  void Clear() {
    while (root_ != nullptr) {
      if (root_->left != nullptr) {
        Rotate(true);
      } else {
        root_ = std::unique_ptr<Node>(std::move(root_->right));
      }
    }
  }

  std::unique_ptr<Node> root_;
};

}  // namespace vexa

#endif  // VEXA_CORE_SPLAY_TREE_H_
