// A library with three string tables: a whole one for the ids 16 to 31, one whose first string reaches behind
// the table, one that ends after two strings. The block is that of the resource compiler, by hand.
namespace {

#define N32(n) (n) & 0xFF, (n) >> 8 & 0xFF, (n) >> 16 & 0xFF, (n) >> 24
#define ENTRY(name, offset, size) N32(6), N32(name), N32(0x409), N32(offset), N32(size)

}  // namespace

extern "C" {
__attribute__((visibility("default"))) extern const unsigned char orm_resource_directory[];
alignas(8) const unsigned char orm_resource_directory[140] = {
    // clang-format off
    'O', 'R', 'M', 'R', N32(1), N32(140), N32(3),
    ENTRY(2, 80, 42), ENTRY(3, 128, 6), ENTRY(4, 136, 4), 0, 0, 0, 0,
    1, 0, 'x', 0,  4, 0, 't', 0, 'e', 0, 'x', 0, 't', 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  0, 0, 0, 0, 0, 0,
    5, 0, 'a', 0, 'b', 0,  0, 0,
    0, 0, 0, 0,
    // clang-format on
};
}
