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
    // Every mode maps whole pixels of the chain's picture (the frame's size) to whole pixels:
    // plain fetches give what filtered samples would.
    ivec2 p = ivec2(gl_FragCoord.xy);
    ivec2 last = textureSize(inputImage, 0) - 1;
    if (mode == 0 || mode == 2) p.x = last.x - p.x;
    if (mode == 1 || mode == 2) p.y = last.y - p.y;
    if (mode == 3) p.x = min(p.x, last.x - p.x);
    if (mode == 4) p.y = max(p.y, last.y - p.y);
    gl_FragColor = texelFetch(inputImage, p, 0);
}
