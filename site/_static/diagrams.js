// Draws the diagrams of a page, in the colours that the page is read in.
document.addEventListener("DOMContentLoaded", () => {
    if (document.querySelector(".mermaid") === null) return;
    const chosen = document.body.dataset.theme;
    const dark = chosen === "dark" || (chosen !== "light" && matchMedia("(prefers-color-scheme: dark)").matches);
    mermaid.initialize({ startOnLoad: false, theme: dark ? "dark" : "neutral" });
    mermaid.run({ querySelector: ".mermaid" });
});
