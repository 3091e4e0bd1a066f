/*{
    "DESCRIPTION": "Crisper edges (unsharp mask).",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Sharpen"],
    "READS_ONLY": {"MARGIN": "$radius"},
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "amount", "LABEL": "Amount", "TYPE": "float", "DEFAULT": 0.8, "MIN": 0.0, "MAX": 3.0},
        {"NAME": "radius", "LABEL": "Radius (pixels)", "TYPE": "float", "DEFAULT": 1.0, "MIN": 0.5, "MAX": 4.0}
    ]
}*/

void main()
{
    vec4 c, around;
    if (radius == 1.0) {
        // The neighbours are whole pixels of the chain's picture (the frame's size): plain
        // fetches give what filtered samples would.
        ivec2 p = ivec2(gl_FragCoord.xy);
        ivec2 last = textureSize(inputImage, 0) - 1;
        c = texelFetch(inputImage, p, 0);
        around = texelFetch(inputImage, ivec2(min(p.x + 1, last.x), p.y), 0) +
                 texelFetch(inputImage, ivec2(max(p.x - 1, 0), p.y), 0) +
                 texelFetch(inputImage, ivec2(p.x, min(p.y + 1, last.y)), 0) +
                 texelFetch(inputImage, ivec2(p.x, max(p.y - 1, 0)), 0);
    } else {
        vec2 px = radius / RENDERSIZE;
        vec2 uv = isf_FragNormCoord;
        c = IMG_NORM_PIXEL(inputImage, uv);
        around = IMG_NORM_PIXEL(inputImage, uv + vec2(px.x, 0.0)) + IMG_NORM_PIXEL(inputImage, uv - vec2(px.x, 0.0)) +
                 IMG_NORM_PIXEL(inputImage, uv + vec2(0.0, px.y)) + IMG_NORM_PIXEL(inputImage, uv - vec2(0.0, px.y));
    }
    gl_FragColor = vec4(clamp(c.rgb + (c.rgb - around.rgb * 0.25) * amount, 0.0, 1.0), c.a);
}
