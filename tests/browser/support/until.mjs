export const PATIENCE = 30_000; // milliseconds for anything that should come soon; busy machines are slow

export const pause = (milliseconds) => new Promise((resolve) => setTimeout(resolve, milliseconds));

// What `holds` gives as soon as that is true.
export async function until(what, holds, patience = PATIENCE) {
  const deadline = Date.now() + patience;
  for (;;) {
    const result = await holds();
    if (result) return result;
    if (Date.now() > deadline) throw new Error(`it did not come true: ${what}`);
    await pause(20);
  }
}
