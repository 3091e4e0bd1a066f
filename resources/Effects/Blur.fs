/*{
    "DESCRIPTION": "Soft Gaussian blur. Worked at half size, so large radii stay fast.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Blur"],
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "radius", "LABEL": "Radius (pixels)", "TYPE": "float", "DEFAULT": 8.0, "MIN": 0.0, "MAX": 60.0}
    ],
    "PASSES": [
        {"TARGET": "across", "WIDTH": "floor($WIDTH/2)", "HEIGHT": "floor($HEIGHT/2)"},
        {"TARGET": "down", "WIDTH": "floor($WIDTH/2)", "HEIGHT": "floor($HEIGHT/2)"},
        {}
    ]
}*/

// Nine taps, sigma two taps; the tap spacing follows the radius.
const float weights[5] = float[5](0.2042, 0.1802, 0.1238, 0.0663, 0.0276);

vec4 blur9(sampler2D img, vec2 uv, vec2 step)
{
    vec4 sum = texture(img, uv) * weights[0];
    for (int i = 1; i < 5; ++i) {
        sum += texture(img, uv + step * float(i)) * weights[i];
        sum += texture(img, uv - step * float(i)) * weights[i];
    }
    return sum;
}

void main()
{
    vec2 uv = isf_FragNormCoord;
    float spacing = radius / 4.0;
    if (PASSINDEX == 0) {
        gl_FragColor = radius > 0.0 ? blur9(inputImage, uv, vec2(spacing / IMG_SIZE(inputImage).x, 0.0))
                                    : IMG_NORM_PIXEL(inputImage, uv);
    } else if (PASSINDEX == 1) {
        gl_FragColor = blur9(across, uv, vec2(0.0, spacing / IMG_SIZE(inputImage).y));
    } else {
        gl_FragColor = radius > 0.0 ? IMG_NORM_PIXEL(down, uv) : IMG_THIS_PIXEL(inputImage);
    }
}
