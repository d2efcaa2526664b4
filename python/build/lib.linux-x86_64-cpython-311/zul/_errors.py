"""The one exception of the package."""


class Error(Exception):
    """A zul file that cannot be read or written, or an input the conversion refuses.

    ``str(error)`` is a sentence naming the file. ``code`` is the library's status number
    (0 for input a conversion refuses), ``status`` its name (``"zul_STATUS_TRUNCATED"``), and
    ``chunk`` the number of the chunk where the damage starts, or -1.
    """

    def __init__(self, message, code=0, status="refused", chunk=-1):
        super().__init__(message)
        self.message = message
        self.code = code
        self.status = status
        self.chunk = chunk

    def __reduce__(self):
        return (Error, (self.message, self.code, self.status, self.chunk))
