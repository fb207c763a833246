// Error numbers of the C library turned into the platform's.
#include "kernel/Errno.h"

#include <cerrno>

namespace orm::platform {

DWORD ErrorFromErrno(int error) noexcept {
  switch (error) {
    case 0:
      return ERROR_SUCCESS;
    case ENOENT:
      return ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
    case ELOOP:
      return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EISDIR:
    case ETXTBSY:
      return ERROR_ACCESS_DENIED;
    case EROFS:
      return ERROR_WRITE_PROTECT;
    case EMFILE:
    case ENFILE:
      return ERROR_TOO_MANY_OPEN_FILES;
    case EBADF:
      return ERROR_INVALID_HANDLE;
    case ENOMEM:
      return ERROR_NOT_ENOUGH_MEMORY;
    case EEXIST:
      return ERROR_ALREADY_EXISTS;
    case ENOTEMPTY:
      return ERROR_DIR_NOT_EMPTY;
    case EINVAL:
      return ERROR_INVALID_PARAMETER;
    case EFAULT:
      return ERROR_INVALID_ADDRESS;
    case ENOSPC:
    case EDQUOT:
      return ERROR_DISK_FULL;
    case EFBIG:
      return ERROR_HANDLE_DISK_FULL;
    case ENAMETOOLONG:
      return ERROR_FILENAME_EXCED_RANGE;
    case EBUSY:
      return ERROR_BUSY;
    case EXDEV:
    case EOPNOTSUPP:
    case ENOSYS:
      return ERROR_NOT_SUPPORTED;
    default:
      return ERROR_GEN_FAILURE;
  }
}

}  // namespace orm::platform
