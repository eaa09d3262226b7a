import numpy as np
import kipx

image = np.array([[10, 100, 200]], np.uint8)

kipx.addq(image, 100, out=image)

print(*image[0])
