// Shared by the script and the program.
#ifndef ORM_TESTS_INTERPOSER_PICTURE_H
#define ORM_TESTS_INTERPOSER_PICTURE_H

#define IDB_PICTURE 1

#endif
