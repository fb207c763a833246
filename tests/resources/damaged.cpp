// A resource block that announces more than it holds: 1,000 bytes and 40 entries in 56.
extern "C" {
__attribute__((visibility("default"))) extern const unsigned char orm_resource_directory[];
const unsigned char orm_resource_directory[56] = {'O', 'R', 'M', 'R', 1, 0, 0, 0, 0xE8, 3, 0, 0, 40, 0, 0, 0};
}
