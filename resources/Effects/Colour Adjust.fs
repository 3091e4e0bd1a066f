/*{
    "DESCRIPTION": "Brightness, contrast, saturation, hue and gamma of the picture.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Color Adjustment"],
    "POINTWISE": true,
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "brightness", "LABEL": "Brightness", "TYPE": "float", "DEFAULT": 0.0, "MIN": -1.0, "MAX": 1.0},
        {"NAME": "contrast", "LABEL": "Contrast", "TYPE": "float", "DEFAULT": 1.0, "MIN": 0.0, "MAX": 4.0},
        {"NAME": "saturation", "LABEL": "Saturation", "TYPE": "float", "DEFAULT": 1.0, "MIN": 0.0, "MAX": 4.0},
        {"NAME": "hue", "LABEL": "Hue (degrees)", "TYPE": "float", "DEFAULT": 0.0, "MIN": -180.0, "MAX": 180.0},
        {"NAME": "gamma", "LABEL": "Gamma", "TYPE": "float", "DEFAULT": 1.0, "MIN": 0.1, "MAX": 5.0}
    ]
}*/

// Hue turns around the grey axis in YIQ space, which keeps brightness.
vec3 rotateHue(vec3 rgb, float degrees)
{
    const mat3 toYIQ = mat3(0.299, 0.596, 0.211, 0.587, -0.274, -0.523, 0.114, -0.322, 0.312);
    const mat3 toRGB = mat3(1.0, 1.0, 1.0, 0.956, -0.272, -1.106, 0.621, -0.647, 1.703);
    vec3 yiq = toYIQ * rgb;
    float a = radians(degrees);
    float s = sin(a), c = cos(a);
    yiq.yz = vec2(yiq.y * c - yiq.z * s, yiq.y * s + yiq.z * c);
    return toRGB * yiq;
}

void main()
{
    vec4 c = IMG_THIS_PIXEL(inputImage);
    vec3 rgb = (c.rgb - 0.5) * contrast + 0.5 + brightness;
    float luma = dot(rgb, vec3(0.2126, 0.7152, 0.0722));
    rgb = mix(vec3(luma), rgb, saturation);
    if (hue != 0.0)
        rgb = rotateHue(rgb, hue);
    rgb = clamp(rgb, 0.0, 1.0);
    if (gamma != 1.0)
        rgb = pow(rgb, vec3(1.0 / gamma));
    gl_FragColor = vec4(rgb, c.a);
}
