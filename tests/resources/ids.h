// Shared by the script and the tests, as a program shares it with its script.
#ifndef ORM_TESTS_RESOURCES_IDS_H
#define ORM_TESTS_RESOURCES_IDS_H

#define IDS_FIRST 16
#define IDS_SECOND (IDS_FIRST + 1)
#define IDS_LAST 0xFFFF
#define IDB_DOTS 7

#ifdef __cplusplus
inline int ForTheProgramOnly() {
  return IDS_FIRST;
}
#endif
#define FOR_THE_PROGRAM_ONLY(x) ((x)*2)

#endif
