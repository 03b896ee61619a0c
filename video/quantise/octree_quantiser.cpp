// Octree colour quantisation in one pass over the pixels.
//
// Each pixel's colour becomes a 32-bit key whose nibbles, from the top, pick
// the child at each of the eight levels (one bit of R, G and B per level).
// Pixels are added to leaves as they come; whenever a new leaf makes 257 of
// them, the sibling group with the fewest members just above the leaf depth
// is folded into its parent, so the tree never holds more than 256 colours
// and never more than 257 x 8 nodes. Every pixel records the 16-bit id of the
// leaf it joined; a fold points the children's ids at the parent's new id in
// a remap table, so the final index plane is a table look-up per pixel, with
// no nearest-colour search. A run of pixels that falls into the leaf of the
// previous pixel skips the walk down the tree.
//
// Not done here: dithering, colour-space weighting, or any search for a
// better palette after the tree is built; the result is what the tree holds.
#include "video/quantise/octree_quantiser.h"

#include <cstring>

#include "base/checked_size.h"
#include "ncodecbase/video_processor.h"
#include "platform/kernel/heap.h"

namespace ncb::quantise {
namespace {

constexpr int kPoolNodes = 2056;  // 257 leaves x 8 levels: the most the tree can hold
constexpr int kRootNode = kPoolNodes;
constexpr uint16_t kNone = 0xFFFF;
constexpr int kLevels = 8;
constexpr int kMaxLeaves = 256;
constexpr uint16_t kFinal = 0x8000;  // remap entry already resolved to a final number

struct Node {
    uint64_t sumB, sumG, sumR;
    uint32_t count;
    uint16_t leafId;
    uint16_t prev, next;  // same-level list
    uint16_t children[8];
    uint16_t freeNext;
    uint8_t leaf;
    uint8_t childCount;
    uint8_t level;
};
static_assert(sizeof(Node) <= 64, "a node keeps to one cache line");

template <typename T>
struct HeapArray {
    T* p = nullptr;
    ~HeapArray() { nplat::HeapFree(p); }
    bool Allocate(size_t count) {
        p = static_cast<T*>(nplat::HeapAlloc(count * sizeof(T)));
        return p != nullptr;
    }
};

class Octree {
  public:
    Octree(Node* nodes, uint16_t* remap, uint16_t* pixelIds, int idSpace)
        : m_nodes(nodes), m_remap(remap), m_pixelIds(pixelIds), m_idSpace(idSpace) {
        for (int i = 0; i < kPoolNodes; ++i)
            m_nodes[i].freeNext = static_cast<uint16_t>(i + 1 < kPoolNodes ? i + 1 : kNone);
        m_freeHead = 0;
        for (int l = 0; l < kLevels; ++l) m_head[l] = m_tail[l] = kNone;
        Node& root = m_nodes[kRootNode];
        std::memset(&root, 0, sizeof root);
        std::memset(root.children, 0xFF, sizeof root.children);
    }

    bool AddRows(const QuantiseArgs& a);
    int BuildPalette(uint8_t* palette);
    void WriteIndices(const QuantiseArgs& a);

  private:
    uint16_t Allocate(int level);
    void Release(uint16_t index);
    uint16_t NewLeafId();
    void Reduce();
    void Merge(uint16_t index);
    void Renumber();
    void ResolveRemap();

    Node* m_nodes;
    uint16_t* m_remap;
    uint16_t* m_pixelIds;
    int m_idSpace;
    int m_nextId = 0;
    int64_t m_recorded = 0;  // pixels whose leaf id is in m_pixelIds
    uint16_t m_freeHead;
    uint16_t m_head[kLevels];
    uint16_t m_tail[kLevels];
    int m_leafDepth = kLevels - 1;
    int m_leafCount = 0;
};

uint16_t Octree::Allocate(int level) {
    const uint16_t index = m_freeHead;
    if (index == kNone) return kNone;
    Node& n = m_nodes[index];
    m_freeHead = n.freeNext;
    std::memset(&n, 0, sizeof n);
    std::memset(n.children, 0xFF, sizeof n.children);
    n.level = static_cast<uint8_t>(level);
    n.next = kNone;
    n.prev = m_tail[level];
    if (m_tail[level] != kNone)
        m_nodes[m_tail[level]].next = index;
    else
        m_head[level] = index;
    m_tail[level] = index;
    return index;
}

void Octree::Release(uint16_t index) {
    Node& n = m_nodes[index];
    if (n.prev != kNone)
        m_nodes[n.prev].next = n.next;
    else
        m_head[n.level] = n.next;
    if (n.next != kNone)
        m_nodes[n.next].prev = n.prev;
    else
        m_tail[n.level] = n.prev;
    n.freeNext = m_freeHead;
    m_freeHead = index;
}

uint16_t Octree::NewLeafId() {
    if (m_nextId >= m_idSpace) Renumber();
    const uint16_t id = static_cast<uint16_t>(m_nextId++);
    m_remap[id] = id;
    return id;
}

// Points every retired id at the final number of the leaf that absorbed it.
// A fold always gives the parent a larger id than its children had, so
// walking the ids downwards finds each successor already resolved.
void Octree::ResolveRemap() {
    for (int id = m_nextId - 1; id >= 0; --id) {
        const uint16_t v = m_remap[id];
        if (!(v & kFinal)) m_remap[id] = m_remap[v];
    }
}

// Out of leaf ids: give the live leaves the numbers 0..n-1 and rewrite the
// ids recorded so far, so the remap chains start afresh.
void Octree::Renumber() {
    int live = 0;
    for (int l = kLevels - 1; l >= 0; --l) {
        for (uint16_t i = m_head[l]; i != kNone; i = m_nodes[i].next) {
            Node& n = m_nodes[i];
            if (!n.leaf) continue;
            m_remap[n.leafId] = static_cast<uint16_t>(kFinal | live);
            n.leafId = static_cast<uint16_t>(live++);
        }
    }
    ResolveRemap();
    for (int64_t p = 0; p < m_recorded; ++p)
        m_pixelIds[p] = static_cast<uint16_t>(m_remap[m_pixelIds[p]] & ~kFinal);
    for (int id = 0; id < live; ++id) m_remap[id] = static_cast<uint16_t>(id);
    m_nextId = live;
}

void Octree::Merge(uint16_t index) {
    const uint16_t id = NewLeafId();
    Node& n = m_nodes[index];
    int removed = 0;
    for (uint16_t& c : n.children) {
        if (c == kNone) continue;
        const Node& child = m_nodes[c];
        n.count += child.count;
        n.sumB += child.sumB;
        n.sumG += child.sumG;
        n.sumR += child.sumR;
        m_remap[child.leafId] = id;
        Release(c);
        c = kNone;
        ++removed;
    }
    n.childCount = 0;
    n.leaf = 1;
    n.leafId = id;
    m_leafCount -= removed - 1;
}

// Folds the smallest sibling group above the leaf depth; when every node of
// that level has a single child, the whole level folds, leaves are made one
// level higher from then on, and the search moves up.
void Octree::Reduce() {
    for (int level = m_leafDepth - 1; level >= 0; --level) {
        uint16_t best = kNone;
        for (uint16_t i = m_head[level]; i != kNone; i = m_nodes[i].next) {
            const Node& n = m_nodes[i];
            if (n.leaf || n.childCount < 2) continue;
            if (best == kNone || n.childCount < m_nodes[best].childCount) {
                best = i;
                if (n.childCount == 2) break;
            }
        }
        if (best != kNone) {
            Merge(best);
            return;
        }
        for (uint16_t i = m_head[level]; i != kNone; i = m_nodes[i].next)
            if (!m_nodes[i].leaf) Merge(i);
        m_leafDepth = level;
    }
}

bool Octree::AddRows(const QuantiseArgs& a) {
    const unsigned int* redMask = CNVideoProcessor::s_uOctTreeRedMask;
    const unsigned int* greenMask = CNVideoProcessor::s_uOctTreeGreenMask;
    const unsigned int* blueMask = CNVideoProcessor::s_uOctTreeBlueMask;
    const unsigned int* levelMask = CNVideoProcessor::s_uOctTreeLevelMask;
    Node* last = nullptr;  // leaf of the previous pixel, null after a fold
    uint32_t lastMask = 0, lastKey = 0;
    for (int y = 0; y < a.height; ++y) {
        const uint8_t* px = a.source + y * a.sourcePitch;
        for (int x = 0; x < a.width; ++x, px += 4) {
            const uint32_t key = blueMask[px[0]] + greenMask[px[1]] + redMask[px[2]];
            Node* leaf = last;
            bool created = false;
            if (!last || (key & lastMask) != lastKey) {
                Node* node = &m_nodes[kRootNode];
                for (int level = 0;; ++level) {
                    const int slot = static_cast<int>(key >> (28 - 4 * level)) & 7;
                    uint16_t child = node->children[slot];
                    if (child == kNone) {
                        child = Allocate(level);
                        if (child == kNone) return false;  // cannot happen: see kPoolNodes
                        node->children[slot] = child;
                        node->childCount++;
                        if (level == m_leafDepth) {
                            const uint16_t id = NewLeafId();  // may renumber: not a leaf yet
                            Node& made = m_nodes[child];
                            made.leaf = 1;
                            made.leafId = id;
                            ++m_leafCount;
                            created = true;
                        }
                    }
                    node = &m_nodes[child];
                    if (node->leaf) break;
                }
                leaf = node;
                lastMask = levelMask[leaf->level];
                lastKey = key & lastMask;
            }
            leaf->count++;
            leaf->sumB += px[0];
            leaf->sumG += px[1];
            leaf->sumR += px[2];
            m_pixelIds[m_recorded++] = leaf->leafId;
            last = leaf;
            if (created && m_leafCount > kMaxLeaves) {
                Reduce();
                last = nullptr;
            }
        }
    }
    return true;
}

int Octree::BuildPalette(uint8_t* palette) {
    int colours = 0;
    for (int l = kLevels - 1; l >= 0; --l) {
        for (uint16_t i = m_head[l]; i != kNone; i = m_nodes[i].next) {
            const Node& n = m_nodes[i];
            if (!n.leaf) continue;
            uint8_t* entry = palette + 4 * colours;
            entry[0] = static_cast<uint8_t>(n.sumB / n.count);
            entry[1] = static_cast<uint8_t>(n.sumG / n.count);
            entry[2] = static_cast<uint8_t>(n.sumR / n.count);
            entry[3] = 0;
            m_remap[n.leafId] = static_cast<uint16_t>(kFinal | colours);
            ++colours;
        }
    }
    ResolveRemap();
    return colours;
}

void Octree::WriteIndices(const QuantiseArgs& a) {
    const uint16_t* ids = m_pixelIds;
    for (int y = 0; y < a.height; ++y) {
        const int row = a.flip ? a.height - 1 - y : y;
        uint8_t* out = a.indices + row * a.indexPitch;
        for (int x = 0; x < a.width; ++x) out[x] = static_cast<uint8_t>(m_remap[*ids++]);
    }
}

}  // namespace

bool QuantiseOctree(const QuantiseArgs& args, int leafIdSpace) {
    if (args.width < 1 || args.height < 1 || !args.source || !args.indices || !args.palette ||
        !args.colourCount) {
        return false;
    }
    if (leafIdSpace < 600) leafIdSpace = 600;
    if (leafIdSpace > 32767) leafIdSpace = 32767;
    int64_t pixels;
    if (!CheckedMul<int64_t>(args.width, args.height, &pixels) ||
        !CheckedMul<int64_t>(pixels, 2, &pixels)) {
        return false;
    }
    HeapArray<Node> nodes;
    HeapArray<uint16_t> remap, pixelIds;
    if (!nodes.Allocate(kPoolNodes + 1) || !remap.Allocate(static_cast<size_t>(leafIdSpace)) ||
        !pixelIds.Allocate(static_cast<size_t>(pixels / 2))) {
        return false;
    }
    Octree tree(nodes.p, remap.p, pixelIds.p, leafIdSpace);
    if (!tree.AddRows(args)) return false;
    uint8_t palette[kMaxLeaves * 4];
    const int colours = tree.BuildPalette(palette);
    tree.WriteIndices(args);
    std::memcpy(args.palette, palette, static_cast<size_t>(colours) * 4);
    *args.colourCount = colours;
    return true;
}

}  // namespace ncb::quantise
