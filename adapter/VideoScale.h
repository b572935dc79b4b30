#pragma once

/// The size of the graphics plane in pixels, and the factors from it to the video's size. Kept for
/// the debugger's eye: no operation reads the factors.
extern int graphicsPlaneWidth;
extern int graphicsPlaneHeight;
extern float videoScaleX;
extern float videoScaleY;
