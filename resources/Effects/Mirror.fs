/*{
    "DESCRIPTION": "Flips or mirrors the picture.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Geometry Adjustment"],
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "mode", "LABEL": "Mode", "TYPE": "long", "DEFAULT": 0, "VALUES": [0, 1, 2, 3, 4],
         "LABELS": ["Flip left to right", "Flip upside down", "Turn half round", "Mirror left half", "Mirror top half"]}
    ]
}*/

void main()
{
    vec2 uv = isf_FragNormCoord;
    if (mode == 0 || mode == 2) uv.x = 1.0 - uv.x;
    if (mode == 1 || mode == 2) uv.y = 1.0 - uv.y;
    if (mode == 3) uv.x = 0.5 - abs(uv.x - 0.5);
    if (mode == 4) uv.y = 0.5 + abs(uv.y - 0.5);
    gl_FragColor = IMG_NORM_PIXEL(inputImage, uv);
}
