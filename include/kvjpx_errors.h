/* Result codes of every kv_jpx_* function. */
#ifndef KVJPX_ERRORS_H_
#define KVJPX_ERRORS_H_

enum kv_jpx_error {
  /** Success. */
  JPX_OK = 0,
  /** An allocation failed, or a block given back is null or was released already. */
  JPX_ERR_MEMORY = 1,
  /** The context is null or not a live context. */
  JPX_ERR_BAD_CONTEXT = 2,
  /** An argument is out of range, no box has the identifier, or a box refuses the value. */
  JPX_ERR_INVALID_ARGUMENT = 3,
  /** The box has no such field, the field is not live in the box's state, or the index is off. */
  JPX_ERR_NO_SUCH_FIELD = 4,
  /** The caller's buffer is too small (the needed size is written back). */
  JPX_ERR_BUFFER_TOO_SMALL = 5,
  /** A box of this type may not stand in this place. */
  JPX_ERR_CANNOT_MAKE_BOX = 6,
  /** The signature box does not hold 0x0D0A870A (ISO/IEC 15444-1, I.5.1). */
  JPX_ERR_BAD_SIGNATURE = 7,
  /** No input has been set on the context. */
  JPX_ERR_NO_INPUT = 8,
  /** The input ends inside a box. */
  JPX_ERR_READ_PAST_END = 18,
  /** A file could not be opened, or its status not read. */
  JPX_ERR_OPEN_FILE = 100,
  /** Reading, writing or mapping an open file failed. */
  JPX_ERR_FILE_IO = 102,
  /** A stream of the wrong kind or in the wrong state was used. */
  JPX_ERR_INTERNAL = 999
};

#endif /* KVJPX_ERRORS_H_ */
