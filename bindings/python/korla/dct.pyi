from typing import Literal

import numpy as np
from numpy.typing import ArrayLike, NDArray

lengths: tuple[int, ...]
type4_lengths: tuple[int, ...]

def dct(x: ArrayLike, type: Literal[2, 3, 4] = 2, n: int | None = None, axis: int = -1,
        norm: Literal["backward", "ortho", "forward"] | None = None) -> NDArray[np.float32]: ...
def idct(x: ArrayLike, type: Literal[2, 3, 4] = 2, n: int | None = None, axis: int = -1,
         norm: Literal["backward", "ortho", "forward"] | None = None) -> NDArray[np.float32]: ...
