/*{
    "DESCRIPTION": "Big square pixels, for anonymising or a retro look.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Stylize"],
    "READS_ONLY": {"MARGIN": "$cellSize / 2"},
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "cellSize", "LABEL": "Block size (pixels)", "TYPE": "float", "DEFAULT": 16.0, "MIN": 2.0, "MAX": 128.0}
    ]
}*/

void main()
{
    vec2 cell = floor(gl_FragCoord.xy / cellSize) * cellSize + cellSize * 0.5;
    gl_FragColor = IMG_PIXEL(inputImage, min(cell, RENDERSIZE - 0.5));
}
